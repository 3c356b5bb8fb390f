#pragma once

#include <memory>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {

/// The pictures of a short movie, MP4 or WebM for instance, with their alpha where it has any, as an animation that is
/// played for ever. The first track of pictures counts. Jumps decode on from the key frame before. Limits are those of
/// animations; frames beyond are left out.
///
/// Fails ("media") when the bytes are no movie that can be read, and ("imaging") when it is too large.
TAVREL_API Expected<std::shared_ptr<ImageSource>> createMoviePictures(std::shared_ptr<DataProvider> data,
                                                                      std::string name = "the data");

/// The pictures in bytes of any kind: what `ImageSource` reads, else the pictures of a movie. Where they are neither,
/// the error is that of `ImageSource`.
TAVREL_API Expected<std::shared_ptr<ImageSource>> createPictures(std::shared_ptr<DataProvider> data,
                                                                 std::string name = "the data");

}  // namespace tavrel
