#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tavrel::test {

/// Commands see the same devices on every machine, and need not say that they are virtual ones.
inline const int kProgramsSeeVirtualDevices = setenv("TAVREL_CAPTURE", "virtual", 0);

/// How a command ended and what it said.
struct CommandResult {
  int status = -1;
  std::string output;  ///< standard output and standard error
};

/// Runs a shell command.
inline CommandResult shell(const std::string& command) {
  CommandResult result;
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  std::array<char, 4096> chunk{};
  while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
    result.output.append(chunk.data(), count);
  }
  result.status = WEXITSTATUS(pclose(pipe));
  return result;
}

/// Runs `tavrel` with these arguments.
inline CommandResult tavrel(const std::string& arguments) {
  return shell(std::string(TAVREL_PROGRAM) + " " + arguments);
}

/// The lines that ffprobe prints.
inline std::vector<std::string> probe(const std::string& arguments) {
  std::istringstream stream(shell("ffprobe -v error " + arguments).output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// A folder of its own for each test, removed afterwards.
class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest() : folder_(std::filesystem::temp_directory_path() / ("tavrel-program-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~ProgramTest() override { std::filesystem::remove_all(folder_); }

  std::string file(const char* name) const { return (folder_ / name).string(); }
  bool isEmpty() const { return std::filesystem::is_empty(folder_); }

 private:
  std::filesystem::path folder_;
};

}  // namespace tavrel::test
