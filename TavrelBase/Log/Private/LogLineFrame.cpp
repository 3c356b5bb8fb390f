#include "TavrelBase/Log/Private/LogLineFrame.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

namespace tavrel {

LogLineFrame::LogLineFrame(unsigned flag, std::string_view function) {
  using namespace std::chrono;
  const auto head =
      fmt::format_to_n(head_, sizeof head_, "{:.96}[{}:{}] {} TavrelLogger ", program_invocation_short_name, getpid(),
                       gettid(), TavrelDDNameOfLevel(TavrelDDLevelOfFlag(flag)));
  headLength_ = std::min(head.size, sizeof head_);

  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const sys_time<milliseconds> time(seconds(now.tv_sec) + milliseconds(now.tv_nsec / 1000000));
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  const auto tail = fmt::format_to_n(tail_, sizeof tail_, " {:.96} - {:04}/{:02}/{:02} {:02}:{:02}:{:02}:{:03} +0000\n",
                                     function, static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                                     static_cast<unsigned>(date.day()), clock.hours().count(), clock.minutes().count(),
                                     clock.seconds().count(), clock.subseconds().count());
  tailLength_ = std::min(tail.size, sizeof tail_);
}

}  // namespace tavrel
