#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tavrel::test {

/// A trace file of a test, and what Python's JSON parser reads in it.
class TraceChecker {
 public:
  TraceChecker()
      : TraceChecker(std::filesystem::temp_directory_path() / ("tavrel-trace-" + std::to_string(getpid()) + ".json")) {}
  explicit TraceChecker(std::filesystem::path path) : path_(std::move(path)) {}
  TraceChecker(const TraceChecker&) = delete;
  TraceChecker& operator=(const TraceChecker&) = delete;
  ~TraceChecker() {
    std::filesystem::remove(path_);
    std::filesystem::remove(program());
  }

  const std::filesystem::path& path() const { return path_; }

  /// Whether the last bracket is there.
  bool isClosed() const {
    std::ifstream file(path_);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return text.ends_with("]\n");
  }

  /// What Python prints of an expression. `e` is the list of events, read as about:tracing reads them: the bracket at
  /// the end may be missing. `problems(e)` lists what is wrong: spans of one thread that overlap without nesting,
  /// events without what their phase needs, waits without an end.
  std::string ask(const std::string& expression) const {
    std::ofstream(program()) << kProgram;
    const std::string command = "python3 '" + program().string() + "' '" + path_.string() + "' \"$EXPRESSION\" 2>&1";
    setenv("EXPRESSION", expression.c_str(), 1);
    std::string answer;
    std::FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 4096> chunk{};
    while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe))
      answer.append(chunk.data(), count);
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 0) << answer;
    if (!answer.empty()) answer.pop_back();
    return answer;
  }

 private:
  static constexpr const char* kProgram = R"PYTHON(
import json, sys

def problems(events):
    found = []
    spans, waits = {}, {}
    for event in events:
        needed = {'X': 'dur', 'b': 'id', 'e': 'id', 'i': 's', 'C': 'args', 'M': 'args'}[event['ph']]
        if not all(key in event for key in ('pid', 'tid', 'ts', 'name', needed)):
            found.append(event)
        if event['ph'] == 'X':
            span = (round(event['ts'] * 1000), round(event['dur'] * 1000), event['name'])
            spans.setdefault(event['tid'], []).append(span)
        if event['ph'] == 'b':
            waits[event['id']] = event['ts']
        if event['ph'] == 'e' and not waits.pop(event['id'], 1e99) <= event['ts']:
            found.append(event)
    for thread in spans.values():
        open_until = []
        for begin, length, name in sorted(thread, key=lambda span: (span[0], -span[1])):
            while open_until and open_until[-1] <= begin:
                open_until.pop()
            if open_until and begin + length > open_until[-1]:
                found.append((begin, length, name))
            open_until.append(begin + length)
    return found + list(waits)

text = open(sys.argv[1]).read().rstrip()
e = json.loads(text if text.endswith(']') else text + ']')
print(eval(sys.argv[2]))
)PYTHON";

  std::filesystem::path program() const { return path_.string() + ".py"; }

  std::filesystem::path path_;
};

}  // namespace tavrel::test
