#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tavrel::studio {

/// One line for the person at the window.
struct Message {
  enum class Kind { note, fault };
  Kind kind = Kind::note;
  std::string text;
  /// What it is about, to be shown in its folder; empty without one.
  std::filesystem::path file = {};
};

/// What the window's line says: the latest fault until it is put away, else the latest note for some seconds. Times are
/// in seconds on any steady clock.
class Messages {
 public:
  static constexpr double kSecondsOfNote = 10;

  /// Something went right, or is worth knowing.
  void note(std::string text, std::filesystem::path file = {});
  /// Something went wrong; `text` says what to do.
  void fault(std::string text);
  void dismiss();
  /// nullptr while there is nothing to say.
  const Message* current(double now);

 private:
  std::optional<Message> note_;
  std::optional<Message> fault_;
  std::optional<double> noteSince_;
};

}  // namespace tavrel::studio
