#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "ProgramTestSupport.h"
#include "Support/ReaderMovies.h"

namespace tavrel::test {

/// Films, and what of them is still there in the files that were made of them.
class TranscodeCommandTest : public ProgramTest {
 protected:
  /// A film whose sound clicks once a second.
  void makeFilm(const char* name, const std::string& seconds, const std::string& encoding) {
    makeMovie(file(name), "-f lavfi -i testsrc2=size=160x120:rate=25:duration=" + seconds +
                              " -f lavfi -i \"aevalsrc='if(lt(mod(t+0.7,1),0.01),0.8*sin(2*PI*1000*t),0)':s=48000:d=" +
                              seconds + "\" " + encoding + " OUT");
  }
  std::vector<double> frameTimes(const char* name) const {
    return OpenedReader(file(name), MediaType::video).readTimes();
  }
  /// When the clicks begin.
  std::vector<double> clicks(const char* name) const {
    std::vector<double> found;
    double quietSince = -1;
    for (const auto& sample : OpenedReader(file(name), MediaType::audio).readAll()) {
      const auto sound = firstChannelOf(*sample);
      for (std::size_t i = 0; i < sound.size(); ++i) {
        const double time = sample->presentationTimeStamp().seconds() +
                            static_cast<double>(i) / sample->format()->audioFormat.sampleRate;
        if (std::abs(sound[i]) < 0.3F) continue;
        if (found.empty() || time - quietSince > 0.5) found.push_back(time);
        quietSince = time;
      }
    }
    return found;
  }
  void expectSameTimeline(const char* original, const char* made) const {
    const auto before = frameTimes(original);
    const auto after = frameTimes(made);
    ASSERT_EQ(before.size(), after.size());
    // A file whose first sample comes after 0 may be moved there.
    const double moved = after[0] - before[0];
    EXPECT_NEAR(moved, 0, 0.01);
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_NEAR(before[i] + moved, after[i], 0.0011) << i;
    const auto was = clicks(original);
    const auto is = clicks(made);
    ASSERT_EQ(was.size(), is.size());
    for (std::size_t i = 0; i < was.size(); ++i) EXPECT_NEAR(was[i] + moved, is[i], 0.005) << i;
  }
};

}  // namespace tavrel::test
