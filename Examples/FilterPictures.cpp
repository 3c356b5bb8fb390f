// Recolours pictures by a lookup table, one after the other, through the same chain.
//   FilterPictures TABLE.cube FOLDER PICTURE...
#include <fmt/format.h>

#include "TavrelCaptureBase.h"

using namespace tavrel;

namespace {

Expected<std::shared_ptr<Image>> readPicture(const std::filesystem::path& file) {
  return ImageSource::createWithFile(file)
      .and_then([](const auto& source) { return source->imageAtIndex(0); })
      .map([](const auto& image) { return normalizedImage(image); });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    fmt::print(stderr, "usage: FilterPictures TABLE.cube FOLDER PICTURE...\n");
    return 2;
  }
  const auto tableImage = TavrelLookupImageFromFile(argv[1]);
  if (!tableImage) {
    fmt::print(stderr, "{}\n", tableImage.error().description);
    return 1;
  }
  const std::filesystem::path folder = argv[2];
  std::filesystem::create_directories(folder);

  // picture ──▶ lookup filter, with the table as its second input
  const auto lookup = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto table = std::make_shared<TavrelGPUImagePicture>(*tableImage);
  int failures = 0;
  for (int i = 3; i < argc; ++i) {
    const std::filesystem::path file = argv[i];
    const auto written = readPicture(file).and_then([&](const std::shared_ptr<Image>& image) -> Expected<void> {
      const auto picture = std::make_shared<TavrelGPUImagePicture>(image);
      picture->addTarget(lookup, 0);
      table->addTarget(lookup, 1);
      lookup->useNextFrameForImageCapture();
      table->processImage();
      picture->processImage();
      const auto result = lookup->newCGImageFromCurrentlyProcessedOutput();
      picture->removeAllTargets();
      table->removeAllTargets();
      if (!result) return failure("example", 1, "the graph gave no picture");
      return ImageDestination::write(result, folder / file.filename().replace_extension(".png"));
    });
    if (written) continue;
    fmt::print(stderr, "{}: {}\n", file.string(), written.error().description);
    ++failures;
  }
  fmt::print("{} of {} pictures filtered\n", argc - 3 - failures, argc - 3);
  return failures == 0 ? 0 : 1;
}
