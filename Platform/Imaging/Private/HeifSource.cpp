#include <fmt/format.h>
#include <libheif/heif.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/StoredPixels.h"

namespace tavrel {
namespace {

template <auto kRelease>
struct Releaser {
  void operator()(auto* object) const { kRelease(object); }
};
using Context = std::unique_ptr<heif_context, Releaser<heif_context_free>>;
using Picture = std::unique_ptr<heif_image, Releaser<heif_image_release>>;
using Handle = std::unique_ptr<heif_image_handle, Releaser<heif_image_handle_release>>;

/// The main picture of a HEIF file in memory, which must outlive this.
struct HeifFile {
  explicit HeifFile(std::span<const std::uint8_t> bytes) {
    heif_context_set_maximum_image_size_limit(context.get(), kLongestSide);
    error = heif_context_read_from_memory_without_copy(context.get(), bytes.data(), bytes.size(), nullptr);
    if (error.code != heif_error_Ok) return;
    heif_image_handle* primary = nullptr;
    error = heif_context_get_primary_image_handle(context.get(), &primary);
    handle.reset(primary);
  }

  tl::unexpected<Error> damage(std::string_view name) const { return damagedPicture(name, error.message); }

  static constexpr int kLongestSide = 1 << 15;

  const Context context{heif_context_alloc()};
  Handle handle;
  heif_error error{};
};

/// HEIC pictures through libheif: the main one of a file, turned and cut as the file says.
class HeifSource : public ImageSource {
 public:
  HeifSource(std::shared_ptr<DataProvider> data, std::string name, const heif_image_handle& handle)
      : data_(std::move(data)), name_(std::move(name)) {
    properties_.width = static_cast<std::size_t>(heif_image_handle_get_width(&handle));
    properties_.height = static_cast<std::size_t>(heif_image_handle_get_height(&handle));
    if (heif_image_handle_get_luma_bits_per_pixel(&handle) > 8) properties_.bitsPerComponent = 16;
    metadata_ = {.exif = exifOf(handle),
                 .xmp = blockOf(handle, "mime", "application/rdf+xml"),
                 .colorProfile = profileOf(handle)};
  }

  const char* type() const override { return "image/heic"; }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override { return decodedImage(index, {}); }
  Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding& decoding) override {
    if (index != 0) return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no picture {}", name_, index));
    HeifFile file(data_->bytes());
    if (!file.handle) return file.damage(name_);
    const bool isDeep = properties_.bitsPerComponent == 16;
    heif_image* decoded = nullptr;
    file.error =
        heif_decode_image(file.handle.get(), &decoded, heif_colorspace_RGB,
                          isDeep ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RGBA, nullptr);
    const Picture picture(decoded);
    if (!picture) return file.damage(name_);
    const bool hasItsSize = heif_image_get_primary_width(decoded) == static_cast<int>(properties_.width) &&
                            heif_image_get_primary_height(decoded) == static_cast<int>(properties_.height);
    if (!hasItsSize) return damagedPicture(name_, "its sizes contradict each other");
    StoredPixels pixels = {.bytes = isDeep ? wordsOf(*decoded) : bytesOf(*decoded),
                           .width = properties_.width,
                           .isDeep = isDeep,
                           .isOpaque = heif_image_handle_has_alpha_channel(file.handle.get()) == 0,
                           .isPremultiplied = heif_image_handle_is_premultiplied_alpha(file.handle.get()) != 0};
    return imageOfStoredPixels(std::move(pixels), metadata_.colorProfile, decoding);
  }

  ImageProperties properties(std::size_t index) const override { return index == 0 ? properties_ : ImageProperties{}; }
  ImageMetadata metadata() const override { return metadata_; }

 private:
  static Data blockOf(const heif_image_handle& handle, const char* type, std::string_view contentType) {
    const int count = heif_image_handle_get_number_of_metadata_blocks(&handle, type);
    std::vector<heif_item_id> blocks(static_cast<std::size_t>(std::max(count, 0)));
    heif_image_handle_get_list_of_metadata_block_IDs(&handle, type, blocks.data(), count);
    for (const heif_item_id block : blocks) {
      if (contentType != heif_image_handle_get_metadata_content_type(&handle, block)) continue;
      Data bytes(heif_image_handle_get_metadata_size(&handle, block));
      if (heif_image_handle_get_metadata(&handle, block, bytes.data()).code == heif_error_Ok) return bytes;
    }
    return {};
  }

  /// What stands before the TIFF block is skipped by a number of four bytes. The file itself turns the picture, so that
  /// orientation has no say.
  static Data exifOf(const heif_image_handle& handle) {
    const Data stored = blockOf(handle, "Exif", "");
    if (stored.size() < 4) return {};
    const std::size_t skipped = std::size_t{stored[0]} << 24 | std::size_t{stored[1]} << 16 |
                                std::size_t{stored[2]} << 8 | std::size_t{stored[3]};
    if (skipped > stored.size() - 4) return {};
    return exifBlockOf(std::span(stored).subspan(4 + skipped));
  }

  static Data profileOf(const heif_image_handle& handle) {
    Data profile(heif_image_handle_get_raw_color_profile_size(&handle));
    if (!profile.empty()) {
      if (heif_image_handle_get_raw_color_profile(&handle, profile.data()).code != heif_error_Ok) profile.clear();
      return profile;
    }
    heif_color_profile_nclx* codes = nullptr;
    if (heif_image_handle_get_nclx_color_profile(&handle, &codes).code != heif_error_Ok || codes == nullptr) return {};
    profile = makeColorProfile(codes->color_primaries, codes->transfer_characteristics);
    heif_nclx_color_profile_free(codes);
    return profile;
  }

  Data bytesOf(const heif_image& image) const {
    int stride = 0;
    const std::uint8_t* const plane = heif_image_get_plane_readonly(&image, heif_channel_interleaved, &stride);
    Data pixels(properties_.width * properties_.height * 4);
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
      const std::size_t pixel = i / 4;
      const std::uint8_t* const from =
          plane + pixel / properties_.width * static_cast<std::size_t>(stride) + pixel % properties_.width * 4;
      const std::uint8_t turned[] = {from[2], from[1], from[0], from[3]};
      std::memcpy(pixels.data() + i, turned, sizeof turned);
    }
    return pixels;
  }

  /// Of 16 bits whatever the file has.
  Data wordsOf(const heif_image& image) const {
    int stride = 0;
    const std::uint8_t* const plane = heif_image_get_plane_readonly(&image, heif_channel_interleaved, &stride);
    const std::uint32_t full = (1U << heif_image_get_bits_per_pixel_range(&image, heif_channel_interleaved)) - 1;
    const std::size_t samples = properties_.width * 4;
    Data pixels(samples * properties_.height * 2);
    for (std::size_t i = 0; i < samples * properties_.height; ++i) {
      const std::uint8_t* const from = plane + i / samples * static_cast<std::size_t>(stride) + i % samples * 2;
      const std::uint32_t value = from[0] | std::uint32_t{from[1]} << 8;
      const auto word = static_cast<std::uint16_t>((std::min(value, full) * 65535 + full / 2) / full);
      std::memcpy(pixels.data() + i * 2, &word, sizeof word);
    }
    return pixels;
  }

  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  ImageMetadata metadata_;
  ImageProperties properties_;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createHeifSource(std::shared_ptr<DataProvider> data, std::string name) {
  const HeifFile file(data->bytes());
  if (!file.handle) return file.damage(name);
  const auto side = [](int length) { return static_cast<std::size_t>(std::max(length, 0)); };
  const auto checked = checkPictureSize(name, side(heif_image_handle_get_width(file.handle.get())),
                                        side(heif_image_handle_get_height(file.handle.get())));
  if (!checked) return tl::unexpected(checked.error());
  const heif_image_handle& handle = *file.handle;
  return std::make_shared<HeifSource>(std::move(data), std::move(name), handle);
}

}  // namespace tavrel
