#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"

#include <gtest/gtest.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/filter.h>

#include <array>

namespace tavrel::test {
namespace {

/// What a camera offers: one layout at one size, with these rates.
const spa_pod* offer(spa_pod_builder& builder, spa_video_format format, const std::vector<spa_fraction>& rates) {
  const spa_rectangle size = {320, 240};
  spa_pod_frame object{};
  spa_pod_frame choice{};
  spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                      SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format, SPA_POD_Id(format),
                      SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), 0);
  spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_framerate, 0);
  spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
  spa_pod_builder_fraction(&builder, rates[0].num, rates[0].denom);
  for (const spa_fraction& rate : rates) spa_pod_builder_fraction(&builder, rate.num, rate.denom);
  spa_pod_builder_pop(&builder, &choice);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &object));
}

/// What the daemon makes of the offers and a wish: the first of ours that any offer meets, at its preferred values.
std::pair<spa_video_format, double> agreed(const std::vector<const spa_pod*>& offers, double rate) {
  std::vector<PipeWireMode> modes;
  for (const spa_pod* pod : offers) {
    for (PipeWireMode& mode : parsePipeWireModes(*pod)) modes.push_back(std::move(mode));
  }
  std::array<std::uint8_t, 8192> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  for (const spa_pod* wish : buildVideoFormats(builder, modes, {320, 240}, rate)) {
    for (const spa_pod* pod : offers) {
      std::array<std::uint8_t, 4096> room{};
      spa_pod_builder result{};
      spa_pod_builder_init(&result, room.data(), room.size());
      spa_pod* common = nullptr;
      if (spa_pod_filter(&result, &common, pod, wish) < 0) continue;
      spa_pod_fixate(common);
      spa_video_info_raw info{};
      spa_format_video_raw_parse(common, &info);
      return {info.format, static_cast<double>(info.framerate.num) / info.framerate.denom};
    }
  }
  return {SPA_VIDEO_FORMAT_UNKNOWN, 0};
}

TEST(PipeWireFormatsTest, AgreesOnTheRateThatWasWished) {
  std::array<std::uint8_t, 4096> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  const auto* const yuy2 = offer(builder, SPA_VIDEO_FORMAT_YUY2, {{60, 1}, {30000, 1001}, {15, 1}});
  for (const double rate : {15.0, 30.0, 60.0}) {
    EXPECT_NEAR(agreed({yuy2}, rate).second, rate, 0.05) << "wished " << rate;
  }
  // A cheaper layout that lacks the rate comes second.
  const auto* const nv12 = offer(builder, SPA_VIDEO_FORMAT_NV12, {{30, 1}});
  EXPECT_EQ(agreed({nv12, yuy2}, 60), std::pair(SPA_VIDEO_FORMAT_YUY2, 60.0));
  EXPECT_EQ(agreed({nv12, yuy2}, 30).first, SPA_VIDEO_FORMAT_NV12);
  // What nobody has is better than nothing.
  EXPECT_EQ(agreed({nv12}, 50), std::pair(SPA_VIDEO_FORMAT_NV12, 30.0));
}

}  // namespace
}  // namespace tavrel::test
