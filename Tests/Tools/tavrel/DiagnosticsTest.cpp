#include <gtest/gtest.h>

#include <fstream>

#include "ProgramTestSupport.h"
#include "Support/TracingTestSupport.h"

namespace tavrel::test {
namespace {

constexpr const char* kRecord = "record --size 160x120 --camera back --duration 1.5 ";

class DiagnosticsTest : public ProgramTest {
 protected:
  std::string framesIn(const std::string& movie) const {
    const auto lines =
        probe("-count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 " + movie);
    return lines.empty() ? "none" : lines.front();
  }
  /// What Python prints of an expression about the JSON `result`.
  std::string ask(const std::string& result, const std::string& expression) const {
    const TraceChecker checker(file("result.json"));
    std::ofstream(checker.path()) << '[' << result << ']';
    return checker.ask(expression);
  }
};

TEST_F(DiagnosticsTest, StatisticsOfARecordingAgreeWithTheMovie) {
  const std::string movie = file("out.mov");
  const auto result =
      tavrel(std::string(kRecord) + "--beauty 0.5 --stats --json --trace " + file("t.json") + " " + movie);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(ask(result.output, "e[0]['stats']['framesOut']"), framesIn(movie));
  EXPECT_EQ(ask(result.output, "e[0]['frames'] == e[0]['stats']['framesOut']"), "True") << result.output;
  EXPECT_EQ(ask(result.output,
                "{n['name'] for n in e[0]['stats']['nodes']} >= {'TavrelCamera', "
                "'TavrelGPUImageBeautifyFilter', 'TavrelGPUImageMovieWriter', 'TavrelMicrophone'}"),
            "True")
      << result.output;
  EXPECT_EQ(ask(result.output,
                "e[0]['stats']['latencyToFile']['count'] == e[0]['stats']['framesOut'] and "
                "0 < e[0]['stats']['latencyToFile']['p50'] <= e[0]['stats']['latencyToFile']['p99']"),
            "True")
      << result.output;
  // Frames neither vanish nor multiply between the camera and its delegate.
  EXPECT_EQ(ask(result.output,
                "e[0]['stats']['framesIn'] - sum(d['count'] for d in e[0]['stats']['drops'] if d['stage'] "
                "== 'camera') == e[0]['stats']['framesDelivered']"),
            "True")
      << result.output;

  const TraceChecker trace(file("t.json"));
  EXPECT_TRUE(trace.isClosed());
  EXPECT_EQ(trace.ask("problems(e)"), "[]");
  EXPECT_EQ(trace.ask("{'main', 'video-processing queue', 'writer queue', 'video.tavrel.videocapture'} <= "
                      "{x['args']['name'] for x in e if x['ph'] == 'M'}"),
            "True");
  EXPECT_EQ(trace.ask("sum(x['name'] == 'VideoEncoder' for x in e)"), framesIn(movie));
}

TEST_F(DiagnosticsTest, TranscodingAndFilteringAreMeasured) {
  const std::string movie = file("in.mp4");
  ASSERT_EQ(shell("ffmpeg -v error -f lavfi -i testsrc=size=128x96:rate=30:duration=2 " + movie).status, 0);
  const auto result = tavrel("transcode --mirror --stats --json " + movie + " " + file("out.mp4"));
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(ask(result.output, "(e[0]['stats']['framesIn'], e[0]['stats']['framesOut'], e[0]['stats']['drops'])"),
            "(60, 60, [])");
  EXPECT_EQ(framesIn(file("out.mp4")), "60");

  ASSERT_EQ(shell("ffmpeg -v error -i " + movie + " -frames:v 1 " + file("in.png")).status, 0);
  const auto filtered = tavrel("filter --blur 2 --stats " + file("in.png") + " " + file("out.png"));
  ASSERT_EQ(filtered.status, 0) << filtered.output;
  EXPECT_NE(filtered.output.find("TavrelGPUImageSmoothBlurFilter                  1"), std::string::npos)
      << filtered.output;
  EXPECT_EQ(shell(std::string(TAVREL_PROGRAM) + " filter --stats " + file("in.png") + " " + file("out.png") +
                  " 2>/dev/null | wc -l")
                .output,
            "1\n")
      << "the table belongs to standard error";
}

TEST_F(DiagnosticsTest, ATraceThatCannotBeWrittenIsSaidInOneLineBeforeAnythingIsMade) {
  const std::string movie = file("out.mov");
  const auto refused = tavrel(std::string(kRecord) + "--trace /nowhere/t.json " + movie);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "tavrel: cannot write the trace /nowhere/t.json: No such file or directory\n");
  EXPECT_FALSE(std::filesystem::exists(movie));

  const auto full = tavrel(std::string(kRecord) + "--trace /dev/full " + movie);
  EXPECT_EQ(full.status, 1);
  EXPECT_NE(full.output.find("tavrel: the trace /dev/full broke off: No space left on device\n"), std::string::npos)
      << full.output;
  EXPECT_NE(framesIn(movie), "0") << "the movie is none the worse for it";
}

TEST_F(DiagnosticsTest, AKilledProgramLeavesATraceThatOpens) {
  const TraceChecker trace(file("t.json"));
  const std::string path = trace.path().string();
  const auto killed =
      shell(std::string(TAVREL_PROGRAM) + " record --size 160x120 --trace " + path + " " + file("out.mov") +
            " & i=0; while [ $((i += 1)) -lt 300 ] && [ \"$(cat " + path +
            " 2>/dev/null | grep -c '\"TavrelCamera\"')\" -lt 10 ]; do sleep 0.1; done; kill -KILL $!; wait $!");
  EXPECT_NE(killed.status, 0);
  EXPECT_FALSE(trace.isClosed());
  EXPECT_EQ(trace.ask("problems(e)"), "[]");
  EXPECT_GT(std::stoi(trace.ask("sum(x['name'] == 'TavrelCamera' for x in e)")), 5);
}

}  // namespace
}  // namespace tavrel::test
