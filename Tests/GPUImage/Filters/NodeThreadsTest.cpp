#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "FusionTestSupport.h"
#include "Support/ThreadsTestSupport.h"

namespace tavrel {
namespace {

using test::Feeder;
using test::largestDifference;
using test::Picture;
using test::Pixel;
using test::RecordingTarget;
using test::runTogether;

/// Each of them in vain: no shader here has such a uniform.
void setUniforms(TavrelGPUImageFilter& filter) {
  constexpr GLint kNone = -1;
  constexpr std::array<GLfloat, 2> kArray = {1, 2};
  const auto program = filter.program();
  filter.setFloat(1, "unused");
  filter.setInteger(1, "unused");
  filter.setSize({1, 1}, "unused");
  filter.setPoint({1, 1}, "unused");
  filter.setFloatVec3({}, "unused");
  filter.setFloatVec4({}, "unused");
  filter.setFloatArray(kArray.data(), kArray.size(), kNone);
  filter.setMatrix3f({}, kNone, program);
  filter.setMatrix4f({}, kNone, program);
  filter.setVec3({}, kNone, program);
  filter.setVec4({}, kNone, program);
  filter.setAndExecuteUniformStateCallbackAtIndex(kNone, program, [] {});
}

/// Every setter and getter that all filters have.
void setAll(TavrelGPUImageFilter& filter, int turn) {
  const bool isOdd = turn % 2 == 1;
  filter.setBackgroundColor(0.1F * static_cast<float>(turn % 10), 0, 0, 1);
  filter.setInputRotation(isOdd ? kTavrelGPUImageRotate180 : kTavrelGPUImageNoRotation, 0);
  if (isOdd) {
    filter.forceProcessingAtSize({14, 10});
  } else {
    filter.forceProcessingAtSizeRespectingAspectRatio({15, 15});
  }
  filter.forceProcessingAtSize({});
  filter.setOutputTextureOptions({.wrapS = static_cast<GLenum>(isOdd ? GL_REPEAT : GL_CLAMP_TO_EDGE)});
  filter.setFrameProcessingCompletionBlock([turn](TavrelGPUImageOutput& output, MediaTime) {
    EXPECT_GE(turn, 0);
    EXPECT_NE(output.framebufferForOutput(), nullptr);
  });
  filter.setShouldSmoothlyScaleOutput(isOdd);
  filter.setShouldIgnoreUpdatesToThisTarget(false);
  filter.setEnabled(true);
  filter.setTargetToIgnoreForUpdates(nullptr);
  filter.setAudioEncodingTarget(nullptr);
  filter.setCurrentlyReceivingMonochromeInput(isOdd);
  filter.setPreventRendering(isOdd);
  filter.setPreventRendering(false);
  setUniforms(filter);

  EXPECT_FALSE(filter.shouldIgnoreUpdatesToThisTarget());
  EXPECT_TRUE(filter.enabled());
  EXPECT_EQ(filter.targetToIgnoreForUpdates(), nullptr);
  EXPECT_EQ(filter.audioEncodingTarget(), nullptr);
  EXPECT_NE(filter.program(), nullptr);
  EXPECT_EQ(filter.outputTextureOptions().wrapT, static_cast<GLenum>(GL_CLAMP_TO_EDGE));
  EXPECT_NE(filter.frameProcessingCompletionBlock(), nullptr);
  for (const auto& target : filter.targets()) EXPECT_NE(target, nullptr);
  filter.shouldSmoothlyScaleOutput();
  filter.currentlyReceivingMonochromeInput();
  filter.preventRendering();
  filter.inputRotation();
  filter.nextAvailableTextureIndex();
  filter.sizeOfFBO();
  filter.outputFrameSize();
  filter.rotatedSize({1, 2}, 0);
  filter.framebufferForOutput();
  filter.allTargetsWantMonochromeData();
}

TEST(NodeThreads, EveryFilterMayBeSetFromManyThreadsWhileFramesRun) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto crop = std::make_shared<TavrelGPUImageCropFilter>();
  const auto transform = std::make_shared<TavrelGPUImageTransformFilter>();
  const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
  const auto beautify = std::make_shared<TavrelGPUImageBeautifyFilter>();
  const auto blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  const auto lookup = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  const auto buffer = std::make_shared<TavrelGPUImageBuffer>();
  const auto rotation = std::make_shared<TavrelGPUImageRotationFilter>(kTavrelGPUImageRotate180);
  const auto smooth = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  const auto still = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(8, 8)));
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> chain = {crop,   transform, placement, beautify, rotation,
                                                              smooth, blur,      lookup,    blend,    buffer};
  std::shared_ptr<TavrelGPUImageColorTableFilter> table;
  if (TavrelGPUImageColorTableFilter::isSupported()) {
    table = std::make_shared<TavrelGPUImageColorTableFilter>(test::colorTable());
    chain.insert(chain.begin(), table);
  }
  input->addTarget(chain.front());
  for (std::size_t i = 1; i < chain.size(); ++i) chain[i - 1]->addTarget(chain[i], 0);
  still->addTarget(lookup, 1);
  still->addTarget(blend, 1);
  still->processImage();
  const auto watcher = std::make_shared<RecordingTarget>();

  std::vector<std::function<void(int)>> works;
  for (const auto& filter : chain) works.emplace_back([&](int turn) { setAll(*filter, turn); });
  works.emplace_back([&](int turn) {
    const double level = 0.1 * (turn % 10);
    crop->setCropRegion({{0, 0}, {1 - level / 2, 1}});
    transform->setAffineTransform({1, 0, 0, 1, level, 0});
    transform->setTransform3D(transform->transform3D());
    transform->setIgnoreAspectRatio(turn % 2 == 0);
    transform->setAnchorTopLeft(turn % 3 == 0);
    beautify->setToneLevel(level);
    beautify->setBeautyLevel(level);
    beautify->setBrightLevel(level);
    beautify->setParams(level, level);
    rotation->setRotation(turn % 2 == 0 ? kTavrelGPUImageNoRotation : kTavrelGPUImageRotate180);
    lookup->setIntensity(level);
    if (table) table->setIntensity(level);
    blend->setMix(level);
    blend->setInputRotation(kTavrelGPUImageRotateLeft, 1);
    blend->disableFirstFrameCheck();
    blend->disableSecondFrameCheck();
    buffer->setBufferSize(1 + static_cast<std::size_t>(turn % 3));
    smooth->setSigma(level * 3);
    smooth->setReach(turn % 2);
    smooth->setWorksInLight(turn % 2 == 0);
    TavrelGPUImageContext::setScaling({.enlargesByBicubic = turn % 2 == 0});
    blur->setBlurPasses(static_cast<std::size_t>(turn % 3));
    blur->setTexelSpacingMultiplier(1 + level);
    blur->setVerticalTexelSpacing(1);
    blur->setHorizontalTexelSpacing(1);
    blur->setBlurRadiusInPixels(1 + turn % 2);
    blur->setBlurRadiusAsFractionOfImageHeight(0.1 + 0.01 * (turn % 2));
    blur->setBlurRadiusAsFractionOfImageWidth(0.1 + 0.01 * (turn % 2));
  });
  works.emplace_back([&](int) {
    EXPECT_LE(crop->cropRegion().size.width, 1);
    EXPECT_LE(crop->cropTextureCoordinates()[2], 1);
    EXPECT_LE(transform->affineTransform().tx, 1);
    EXPECT_LE(transform->orthographicMatrix()[15], 1);
    EXPECT_LE(beautify->beautyLevel() + beautify->brightLevel() + beautify->toneLevel(), 3);
    EXPECT_LE(smooth->sigma() + smooth->reach(), 5);
    smooth->worksInLight();
    EXPECT_LE(lookup->intensity() + blend->mix() + (table ? table->intensity() : 0), 3);
    EXPECT_GE(buffer->bufferSize(), 1U);
    EXPECT_LT(blur->blurPasses(), 3U);
    EXPECT_GE(blur->verticalTexelSpacing() + blur->horizontalTexelSpacing() + blur->texelSpacingMultiplier(), 3);
    EXPECT_GE(blur->blurRadiusInPixels(), 0);
    EXPECT_GE(blur->blurRadiusAsFractionOfImageWidth() + blur->blurRadiusAsFractionOfImageHeight(), 0);
    transform->transform3D();
    transform->ignoreAspectRatio();
    transform->anchorTopLeft();
    EXPECT_NE(blur->secondProgram(), nullptr);
  });
  works.emplace_back([&](int) {
    buffer->addTarget(watcher);
    buffer->notifyTargetsAboutNewOutputTexture();
    buffer->removeTarget(watcher);
    beautify->addTarget(watcher, 3);
    beautify->removeTarget(watcher);
  });
  {
    const Feeder feeder(input);
    runTogether(works, 20);
  }
  EXPECT_TRUE(buffer->targets().empty());
  EXPECT_EQ(beautify->targets().size(), 1U);

  // The graph still works: what comes out follows the settings of now.
  TavrelGPUImageContext::setScaling({});
  for (const auto& filter : chain) filter->setFrameProcessingCompletionBlock({});
  blend->setInputRotation(kTavrelGPUImageNoRotation, 1);
  blend->setMix(1);
  blend->useNextFrameForImageCapture();
  const Feeder feeder(input);
  EXPECT_NE(blend->newCGImageFromCurrentlyProcessedOutput(), nullptr);
}

TEST(NodeThreads, ATargetAddedByManyThreadsStandsInTheListOnce) {
  for (int round = 0; round < 20; ++round) {
    const auto output = std::make_shared<TavrelGPUImageOutput>();
    const auto target = std::make_shared<RecordingTarget>();
    const auto add = [&](int) { output->addTarget(target); };
    runTogether({add, add, add, add}, 1);
    EXPECT_EQ(output->targets().size(), 1U);
    EXPECT_EQ(target->count("framebuffer"), 1);
    const auto remove = [&](int) { output->removeTarget(target); };
    runTogether({remove, remove, remove}, 1);
    EXPECT_EQ(target->count("end"), 1);
  }
}

TEST(NodeThreads, TwoProducersAddedAtOnceTakeBothSlots) {
  for (int round = 0; round < 20; ++round) {
    const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    const auto left = std::make_shared<TavrelGPUImageFilter>();
    const auto right = std::make_shared<TavrelGPUImageFilter>();
    runTogether({[&](int) { left->addTarget(blend); }, [&](int) { right->addTarget(blend); }}, 1);
    EXPECT_EQ(blend->nextAvailableTextureIndex(), 1);
    // Whoever has slot 0 frees it.
    left->removeAllTargets();
    const Index freed = blend->nextAvailableTextureIndex();
    right->removeAllTargets();
    EXPECT_EQ(blend->nextAvailableTextureIndex(), 0);
    EXPECT_TRUE(freed == 0 || freed == 1);
  }
}

TEST(NodeThreads, APictureBeingProcessedMayBeGivenTargets) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(test::distinctPicture(4, 4)));
  for (int round = 0; round < 20; ++round) {
    const auto filter = std::make_shared<TavrelGPUImageFilter>();
    picture->processImage();
    picture->addTarget(filter);
    EXPECT_EQ(picture->targets().size(), 1U);
    picture->removeAllTargets();
  }
}

TEST(NodeThreads, EveryStillOfALiveFilterComes) {
  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  input->addTarget(filter);
  filter->addTarget(blur);
  const Picture expected = test::distinctPicture(16, 12);
  const Feeder feeder(input);
  for (int i = 0; i < 40; ++i) {
    filter->useNextFrameForImageCapture();
    blur->useNextFrameForImageCapture();
    // Frames go on meanwhile; the one that was asked for is kept.
    std::this_thread::sleep_for(std::chrono::milliseconds(i % 4 * 5));
    const auto still = filter->newCGImageFromCurrentlyProcessedOutput();
    ASSERT_NE(still, nullptr) << i;
    EXPECT_EQ(largestDifference(test::pictureOf(*still), expected), 0) << i;
    EXPECT_NE(blur->newCGImageFromCurrentlyProcessedOutput(), nullptr) << i;
  }
}

TEST(NodeThreads, OneRequestGivesOneImage) {
  const Picture source = test::distinctPicture(6, 4);
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto picture = std::make_shared<TavrelGPUImagePicture>(test::imageOf(source));
  picture->addTarget(filter);
  for (int i = 0; i < 3; ++i) {
    filter->useNextFrameForImageCapture();
    picture->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    const auto kept = filter->framebufferForOutput();
    ASSERT_NE(kept, nullptr);
    auto image = filter->newCGImageFromCurrentlyProcessedOutput();
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(filter->newCGImageFromCurrentlyProcessedOutput(), nullptr);
    // What the image shows stays as it is while other frames pass.
    picture->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    EXPECT_EQ(largestDifference(test::pictureOf(*image), source), 0);
    image.reset();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    EXPECT_EQ(kept->framebufferReferenceCount(), 0);
  }
  // A request that nobody comes back for ends with the next one.
  filter->useNextFrameForImageCapture();
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  const auto forgotten = filter->framebufferForOutput();
  filter->useNextFrameForImageCapture();
  EXPECT_EQ(forgotten->framebufferReferenceCount(), 0);
}

}  // namespace
}  // namespace tavrel
