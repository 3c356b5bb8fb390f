#include "Platform/Media/SampleBuffer.h"

#include <gtest/gtest.h>

#include "Platform/Media/AudioSession.h"
#include "Platform/Media/MovieMaker.h"

namespace tavrel::test {
namespace {

TEST(SampleBuffer, RetimedCopiesShareTheirData) {
  const auto buffer = sound({}, 480, MediaTime::make(100, 48000), [](double) { return 0.25; });
  EXPECT_EQ(buffer->duration(), MediaTime::make(480, 48000));
  SampleTiming timing = buffer->timingEntries().front();
  timing.presentationTimeStamp = timing.presentationTimeStamp - MediaTime::make(50, 48000);
  const auto copy = *buffer->copyWithNewTiming({timing});
  EXPECT_EQ(copy->presentationTimeStamp(), MediaTime::make(50, 48000));
  EXPECT_EQ(copy->outputPresentationTimeStamp(), MediaTime::make(50, 48000));
  EXPECT_EQ(buffer->presentationTimeStamp(), MediaTime::make(100, 48000));
  EXPECT_EQ(copy->numSamples(), 480);

  const auto list = buffer->audioBufferList();
  static_cast<float*>(list->buffers()[0].data)[7] = 0.75F;
  buffer->invalidate();
  EXPECT_FALSE(buffer->isValid());
  EXPECT_EQ(buffer->audioBufferList(), nullptr);
  EXPECT_FALSE(buffer->copyWithNewTiming({timing}));
  ASSERT_TRUE(copy->isValid());
  EXPECT_EQ(static_cast<float*>(copy->audioBufferList()->buffers()[0].data)[7], 0.75F);
  EXPECT_FALSE(copy->copyWithNewTiming({timing, timing})) << "neither one entry nor one for each";
}

TEST(SampleBuffer, BuffersAreAlignedAndLargeEnough) {
  for (const bool isInterleaved : {true, false}) {
    const AudioFormat format{48000, 2, AudioSampleType::int16, isInterleaved};
    const auto list = AudioBufferList::create(format, 333);
    ASSERT_EQ(list->buffers().size(), isInterleaved ? 1U : 2U);
    for (const AudioBuffer& buffer : list->buffers()) {
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.data) % 16, 0U);
      EXPECT_EQ(buffer.byteSize, isInterleaved ? 1332U : 666U);
      EXPECT_EQ(buffer.channelCount, isInterleaved ? 2U : 1U);
    }
    EXPECT_TRUE(SampleBuffer::createAudio(format, list, 333, MediaTime::zero()));
    EXPECT_FALSE(SampleBuffer::createAudio(format, list, 334, MediaTime::zero()));
    EXPECT_FALSE(SampleBuffer::createAudio(format, list, 333, MediaTime::indefinite()));
    EXPECT_FALSE(SampleBuffer::createAudio({0, 2}, list, 333, MediaTime::zero()));
  }
  EXPECT_FALSE(SampleBuffer::createImage(nullptr, {}));
  EXPECT_FALSE(SampleBuffer::createPacket(std::make_shared<FormatDescription>(), {1, 2}, {}));
}

TEST(AudioSession, HasADefaultAndTakesTheHardwaresRate) {
  AudioSession& session = AudioSession::shared();
  EXPECT_EQ(session.sampleRate(), 48000);
  session.setSampleRate(44100);
  EXPECT_EQ(session.currentHardwareSampleRate(), 44100);
  session.setSampleRate(0);
  EXPECT_EQ(session.sampleRate(), 48000);
}

}  // namespace
}  // namespace tavrel::test
