#include "client/deadline.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sstream>

#include "common/errno_error.h"

using Clock = std::chrono::steady_clock;

Deadline::Deadline(Timeout timeout) : allowed(timeout), start(Clock::now()) {}

Timeout Deadline::Left() const {
  if (allowed == kNoLimit) return kNoLimit;
  return allowed - std::chrono::duration_cast<Timeout>(Clock::now() - start);
}

bool Deadline::WaitFor(int fd, short events, Timeout pause) const {
  const Deadline end(std::min(pause, std::max(Left(), Timeout::zero())));
  while (true) {
    const auto left =
        std::clamp<Timeout::rep>(end.Left().count(), 0, std::numeric_limits<int>::max());
    struct pollfd entry = {fd, events, 0};
    const int found = poll(&entry, 1, static_cast<int>(left));
    if (found > 0) return true;
    if (found < 0 && errno != EINTR) throw ErrnoError("unable to wait for a connection");
    if (end.IsOver()) return false;
  }
}

void Deadline::Fail(const std::string& awaited, const std::string& instead) const {
  std::ostringstream text;
  text << "waited " << std::chrono::duration<double>(allowed).count() << " s for " << awaited
       << "; " << instead;
  throw TimedOut(text.str());
}

std::string Quoted(std::string_view text) {
  constexpr std::size_t kShown = 200;
  std::string quoted = "'" + std::string(text.substr(0, kShown));
  return quoted + (text.size() > kShown ? "…'" : "'");
}
