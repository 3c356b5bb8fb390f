// The formats, sizes and rates of a played node.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <tuple>
#include <utility>

#include "Support/CaptureFakeVideoNode.h"

namespace tavrel::test {
namespace {

std::uint32_t bytesPerPixel(std::uint32_t pixelFormat) {
  switch (pixelFormat) {
    case V4L2_PIX_FMT_ABGR32:
    case V4L2_PIX_FMT_XBGR32: return 4;
    case V4L2_PIX_FMT_YUYV:
    case V4L2_PIX_FMT_UYVY: return 2;
    case V4L2_PIX_FMT_H264:
    case V4L2_PIX_FMT_MJPEG: return 0;
    default: return 1;
  }
}

}  // namespace

const FakeVideoNode::Format* FakeVideoNode::formatOf(std::uint32_t pixelFormat) const {
  for (const Format& format : formats) {
    if (format.pixelFormat == pixelFormat) return &format;
  }
  return nullptr;
}

int FakeVideoNode::enumerate(unsigned long request, void* argument) {
  if (request == VIDIOC_ENUM_FMT) {
    auto& description = *static_cast<v4l2_fmtdesc*>(argument);
    if (description.index >= formats.size() || description.type != bufferType()) return fail(EINVAL);
    description.pixelformat = formats[description.index].pixelFormat;
    return 0;
  }
  if (request == VIDIOC_ENUM_FRAMESIZES) {
    auto& size = *static_cast<v4l2_frmsizeenum*>(argument);
    const Format* format = formatOf(size.pixel_format);
    if (steps && format && size.index == 0) {
      size.type = V4L2_FRMSIZE_TYPE_STEPWISE;
      size.stepwise = *steps;
      return 0;
    }
    if (!format || steps || size.index >= format->sizes.size()) return fail(EINVAL);
    size.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    size.discrete = {format->sizes[size.index].first, format->sizes[size.index].second};
    return 0;
  }
  auto& interval = *static_cast<v4l2_frmivalenum*>(argument);
  const Format* format = formatOf(interval.pixel_format);
  if (!format || interval.index >= format->rates.size()) return fail(EINVAL);
  interval.type = V4L2_FRMIVAL_TYPE_DISCRETE;
  interval.discrete = {1, format->rates[interval.index]};
  return 0;
}

void FakeVideoNode::adjust(v4l2_pix_format& pix) const {
  const Format* known = formatOf(pix.pixelformat);
  if (!known) known = &formats.front();
  pix.pixelformat = known->pixelFormat;
  const std::pair<std::uint32_t, std::uint32_t> wanted(pix.width, pix.height);
  const auto source = inputs.empty() ? std::nullopt : inputs[static_cast<std::size_t>(input_)].size;
  if (source) {
    std::tie(pix.width, pix.height) = *source;
  } else if (steps) {
    const auto rounded = [](std::uint32_t side, std::uint32_t least, std::uint32_t most, std::uint32_t step) {
      return least + (std::clamp(side, least, most) - least) / step * step;
    };
    pix.width = rounded(pix.width, steps->min_width, steps->max_width, steps->step_width);
    pix.height = rounded(pix.height, steps->min_height, steps->max_height, steps->step_height);
  } else if (std::find(known->sizes.begin(), known->sizes.end(), wanted) == known->sizes.end()) {
    std::tie(pix.width, pix.height) = known->sizes.front();
  }
  const std::uint32_t pixel = bytesPerPixel(known->pixelFormat);
  pix.bytesperline = pixel == 0 ? 0 : pix.width * pixel + padding;
  const bool isPlanar = known->pixelFormat == V4L2_PIX_FMT_NV12 || known->pixelFormat == V4L2_PIX_FMT_YUV420;
  pix.sizeimage = pixel == 0 ? pix.width * pix.height * 4 : pix.bytesperline * pix.height * (isPlanar ? 2 : 1);
  if (!planeShapes.empty()) {
    pix.bytesperline = planeShapes[0].bytesPerRow;
    pix.sizeimage = planeShapes[0].byteCount;
  }
  pix.quantization = quantization;
  pix.ycbcr_enc = encoding;
  pix.colorspace = colorspace;
  pix.field = V4L2_FIELD_NONE;
}

int FakeVideoNode::exchangeFormat(unsigned long request, v4l2_format& format) {
  if (format.type != bufferType()) return fail(EINVAL, "spoke of the other kind of buffers");
  if (request == VIDIOC_S_FMT && formatErrno_ != 0) return fail(formatErrno_);
  if (request == VIDIOC_S_FMT && !buffers_.empty()) return fail(EBUSY, "changed the format while there are buffers");
  v4l2_pix_format pix = request == VIDIOC_G_FMT ? chosen_ : v4l2_pix_format{};
  const auto exchange = [&](auto& fields) {
    if (request != VIDIOC_G_FMT) {
      pix.pixelformat = fields.pixelformat;
      pix.width = fields.width;
      pix.height = fields.height;
    }
    adjust(pix);
    fields.pixelformat = pix.pixelformat;
    fields.width = pix.width;
    fields.height = pix.height;
    fields.quantization = static_cast<std::uint8_t>(pix.quantization);
    fields.ycbcr_enc = static_cast<std::uint8_t>(pix.ycbcr_enc);
    fields.colorspace = pix.colorspace;
    fields.field = pix.field;
  };
  if (isMultiPlanar()) {
    exchange(format.fmt.pix_mp);
  } else {
    exchange(format.fmt.pix);
  }
  if (request == VIDIOC_S_FMT) chosen_ = pix;
  if (!isMultiPlanar()) {
    format.fmt.pix.bytesperline = pix.bytesperline;
    format.fmt.pix.sizeimage = pix.sizeimage;
    return 0;
  }
  const auto before = std::exchange(chosen_, pix);
  const auto sizes = planeSizes();
  chosen_ = before;
  format.fmt.pix_mp.num_planes = static_cast<std::uint8_t>(sizes.size());
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    // Chroma planes have padding of their own.
    format.fmt.pix_mp.plane_fmt[i].bytesperline =
        !planeShapes.empty() ? planeShapes.at(i).bytesPerRow
        : i == 0             ? pix.bytesperline
                             : (pix.bytesperline - padding) / (sizes.size() == 3 ? 2 : 1) + padding;
    format.fmt.pix_mp.plane_fmt[i].sizeimage = static_cast<std::uint32_t>(sizes[i]);
  }
  return 0;
}

std::vector<std::size_t> FakeVideoNode::planeSizes() const {
  if (!planeShapes.empty()) {
    std::vector<std::size_t> sizes;
    for (const PlaneShape& plane : planeShapes) sizes.push_back(plane.byteCount);
    return sizes;
  }
  const std::size_t luma = std::size_t{chosen_.bytesperline} * chosen_.height;
  const std::size_t row = chosen_.bytesperline - padding;
  switch (chosen_.pixelformat) {
    case V4L2_PIX_FMT_NV12M: return {luma, (row + padding) * (chosen_.height / 2)};
    case V4L2_PIX_FMT_YUV420M: {
      const std::size_t chroma = (row / 2 + padding) * (chosen_.height / 2);
      return {luma, chroma, chroma};
    }
    default: return {chosen_.sizeimage};
  }
}

int FakeVideoNode::setRate(v4l2_streamparm& parameters) {
  if (isStreaming_) return fail(EBUSY, "changed the rate while streaming");
  const auto& wanted = parameters.parm.capture.timeperframe;
  const double rate = wanted.numerator > 0 ? static_cast<double>(wanted.denominator) / wanted.numerator : 30;
  const auto& rates = formatOf(chosen_.pixelformat)->rates;
  rate_ = *std::min_element(rates.begin(), rates.end(), [&](std::uint32_t left, std::uint32_t right) {
    return std::abs(left - rate) < std::abs(right - rate);
  });
  parameters.parm.capture.timeperframe = {1, rate_};
  return 0;
}

}  // namespace tavrel::test
