#pragma once

#include <memory>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {

/// The frames of a short movie's first video track (MP4, WebM …), with alpha if it has any, as an animation that loops
/// for ever. Random access decodes from the previous keyframe. The limits of animations apply; frames beyond are left
/// out.
///
/// Fails ("media") if the bytes are not a readable movie, and ("imaging") if it is too large.
TAVREL_API Expected<std::shared_ptr<ImageSource>> createMoviePictures(const std::shared_ptr<DataProvider>& data,
                                                                      std::string name = "the data");

/// The images that `ImageSource` reads, or else the frames of a movie. If the bytes are neither, fails as
/// `ImageSource`.
TAVREL_API Expected<std::shared_ptr<ImageSource>> createPictures(const std::shared_ptr<DataProvider>& data,
                                                                 std::string name = "the data");

}  // namespace tavrel
