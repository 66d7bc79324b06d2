#include "common/poll_processor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>

#include "common/errno_error.h"
#include "common/signals.h"

namespace {

constexpr std::int64_t kNanosecondsPerMs = 1'000'000;

std::int64_t SteadyNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Keeps a signal from being delivered for the duration of a scope.
class SignalBlock {
 public:
  explicit SignalBlock(int signo) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, signo);
    sigprocmask(SIG_BLOCK, &blocked, &before);
  }
  ~SignalBlock() { sigprocmask(SIG_SETMASK, &before, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t before;
};

// Each is taken out before it is called, so that the call can only remove later work from the
// queue.
template <class T>
T TakeFront(std::list<T>& queue) {
  T front = queue.front();
  queue.pop_front();
  return front;
}

}  // namespace

class PollProcessor::_QuitSignalHandler : public PollSignalHandler {
 public:
  explicit _QuitSignalHandler(PollProcessor& loop) : PollSignalHandler(0, false), loop(loop) {}
  void HandleSignal(int) override { loop.Quit(); }

 private:
  PollProcessor& loop;
};

PollProcessor::PollProcessor() = default;
PollProcessor::~PollProcessor() = default;

PollProcessor* PollProcessor::Instance() {
  static PollProcessor instance;
  return &instance;
}

bool PollProcessor::Process(int timeout_ms) {
  SignalPass();
  if (quit) return false;
  // Without idle handlers, a burst of activity needs no poll of its own; a timer of this turn does,
  // so that the caller hears of it at once.
  if (idlers.empty()) idle_finished = true;
  const int timeout = TimerPass(timeout_ms);
  FlushPass();
  if (fds_dirty) RebuildDescriptors();
  const int ready = poll(fds.data(), fds.size(), idle_finished ? timeout : 0);
  if (ready == 0) {
    IdlePass();
  } else if (ready > 0) {
    DescriptorPass();
    FlushPass();
  } else if (errno == EINTR) {
    SignalPass();
  } else {
    throw ErrnoError("PollProcessor: error calling poll()");
  }
  return !quit;
}

void PollProcessor::AddQuitSignal(int signo) {
  if (!quit_handler) quit_handler = std::make_unique<_QuitSignalHandler>(*this);
  quit_handler->Add(signo);
}

void PollProcessor::SignalPass() {
  sigset_t* pending = pending_signals();
  if (sigisemptyset(pending) != 0) return;
  for (const auto& [signo, handlers] : signals) {
    if (sigismember(pending, signo) != 1) continue;
    sigdelset(pending, signo);
    for (PollSignalHandler* handler : handlers)
      if (handler->registered) run_signals.emplace_back(handler, signo);
  }
  while (!run_signals.empty()) {
    const auto [handler, signo] = TakeFront(run_signals);
    if (handler->registered) handler->HandleSignal(signo);
  }
}

int PollProcessor::TimerPass(int timeout_ms) {
  if (timers.empty()) return timeout_ms;
  constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  std::int64_t limit = kNever;
  const std::int64_t now = SteadyNow();
  for (PollTimer* timer : timers) {
    if (!timer->armed) continue;
    if (timer->expiry <= now)
      due_timers.push_back(timer);
    else
      limit = std::min(limit, timer->expiry);
  }
  while (!due_timers.empty()) {
    PollTimer* timer = TakeFront(due_timers);
    // An earlier callback of this pass may have stopped or moved it.
    if (!timer->armed) continue;
    if (timer->expiry > now) {
      if (timer->registered) limit = std::min(limit, timer->expiry);
      continue;
    }
    timer->armed = false;
    // Expired may destroy the timer; one that is still in the list is alive.
    timer->Expired();
    NoteActivity();
    const bool alive = std::find(timers.begin(), timers.end(), timer) != timers.end();
    if (alive && timer->armed) limit = std::min(limit, timer->expiry);
  }
  if (limit == kNever) return timeout_ms;
  const std::int64_t wait = limit - SteadyNow();
  if (wait <= 0) return 0;
  // Rounded up, so that the loop does not spin through the last millisecond.
  const std::int64_t wait_ms = (wait + kNanosecondsPerMs - 1) / kNanosecondsPerMs;
  if (timeout_ms >= 0 && timeout_ms < wait_ms) return timeout_ms;
  return static_cast<int>(std::min<std::int64_t>(wait_ms, std::numeric_limits<int>::max()));
}

void PollProcessor::RebuildDescriptors() {
  fds.clear();
  std::fill(item_by_fd.begin(), item_by_fd.end(), nullptr);
  for (PollItem* item : items) {
    const int fd = item->GetFD();
    if (fd < 0) continue;
    const auto index = static_cast<std::size_t>(fd);
    if (index >= item_by_fd.size()) item_by_fd.resize(index + 1);
    if (item_by_fd[index] == nullptr) item_by_fd[index] = item;
    if (item->events != 0) fds.push_back({fd, static_cast<short>(item->events), 0});
  }
  fds_dirty = false;
}

// The first item whose descriptor this is now. The table knows it, unless a handler of this pass
// has closed, moved or removed that item.
PollItem* PollProcessor::FindItem(int fd) {
  PollItem* item = item_by_fd[static_cast<std::size_t>(fd)];
  if (item != nullptr && item->GetFD() == fd) return item;
  const auto found = std::find_if(items.begin(), items.end(),
                                  [fd](PollItem* next) { return next->GetFD() == fd; });
  return found != items.end() ? *found : nullptr;
}

void PollProcessor::DescriptorPass() {
  for (struct pollfd& entry : fds) {
    if (entry.revents == 0) continue;
    if (PollItem* item = FindItem(entry.fd)) {
      item->HandleEvents(entry.revents);
      NoteActivity();
    }
    entry.revents = 0;
  }
}

void PollProcessor::IdlePass() {
  const bool again = idle_started;
  idle_started = true;
  for (PollIdleHandler* handler : idlers) {
    if (!again) handler->finished = false;
    if (!handler->finished) run_idlers.push_back(handler);
  }
  bool all_done = true;
  while (!run_idlers.empty()) {
    PollIdleHandler* handler = TakeFront(run_idlers);
    if (handler->finished) continue;
    if (handler->Idle())
      all_done = false;
    else if (std::find(idlers.begin(), idlers.end(), handler) != idlers.end())
      handler->finished = true;
  }
  idle_finished = all_done;
}

void PollProcessor::FlushPass() {
  // A flush may ask for another one.
  for (std::size_t i = 0; i < flushes.size(); ++i) {
    PollFlushHandler* handler = flushes[i];
    if (handler == nullptr) continue;
    flushes[i] = nullptr;
    handler->requested = false;
    handler->Flush();
  }
  flushes.clear();
}

void PollProcessor::NoteActivity() {
  idle_started = false;
  idle_finished = false;
}

PollItem::PollItem(unsigned short event_mask, bool add) : events(event_mask) {
  if (add) Add();
}

PollItem::~PollItem() { Remove(); }

void PollItem::Add() {
  PollProcessor* loop = PollProcessor::Instance();
  loop->items.push_back(this);
  loop->fds_dirty = true;
  registered = true;
}

void PollItem::Remove() {
  if (!registered) return;
  PollProcessor* loop = PollProcessor::Instance();
  loop->items.remove(this);
  std::replace(loop->item_by_fd.begin(), loop->item_by_fd.end(), this,
               static_cast<PollItem*>(nullptr));
  loop->fds_dirty = true;
  registered = false;
}

void PollItem::SetEvents(unsigned short event_mask) {
  if (event_mask == events) return;
  events = event_mask;
  PollProcessor::Instance()->fds_dirty = true;
}

void PollItem::HandleEvents(int revents) {
  if ((revents & POLLPRI) != 0 && registered) HandlePriority();
  if ((revents & POLLIN) != 0 && registered) HandleRead();
  if ((revents & POLLOUT) != 0 && registered) HandleWrite();
  if ((revents & POLLERR) != 0 && registered) HandleError();
  if ((revents & POLLHUP) != 0 && registered) HandleHangup();
  if ((revents & POLLNVAL) != 0 && registered) HandleInvalid();
}

PollTimer::PollTimer(int timeout_ms, bool add) {
  if (add) Add();
  SetTimeout(timeout_ms);
}

PollTimer::~PollTimer() { Remove(); }

void PollTimer::Add() {
  armed = false;
  PollProcessor::Instance()->timers.push_back(this);
  registered = true;
}

void PollTimer::AddIfNeeded() {
  if (!registered) Add();
}

void PollTimer::Remove() {
  armed = false;
  PollProcessor* loop = PollProcessor::Instance();
  loop->timers.remove(this);
  loop->due_timers.remove(this);
  registered = false;
}

void PollTimer::SetTimeout(int ms) {
  if (ms < 0) {
    armed = false;
  } else if (registered) {
    expiry = SteadyNow() + ms * kNanosecondsPerMs;
    armed = true;
  }
}

void PollTimer::SetExpiry(const struct timeval* when) {
  if (when == nullptr) {
    armed = false;
    return;
  }
  if (!registered) return;
  struct timeval now = {};
  gettimeofday(&now, nullptr);
  const std::int64_t microseconds =
      (std::int64_t{when->tv_sec} - now.tv_sec) * 1'000'000 + (when->tv_usec - now.tv_usec);
  const std::int64_t ms = microseconds / 1000;
  expiry = SteadyNow() + std::max<std::int64_t>(ms, 0) * kNanosecondsPerMs;
  armed = true;
}

void PollTimer::Extend(int ms) {
  if (ms < 0) {
    armed = false;
  } else if (registered) {
    expiry += ms * kNanosecondsPerMs;
    armed = true;
  }
}

PollFlushHandler::~PollFlushHandler() {
  std::vector<PollFlushHandler*>& flushes = PollProcessor::Instance()->flushes;
  std::replace(flushes.begin(), flushes.end(), this, static_cast<PollFlushHandler*>(nullptr));
}

void PollFlushHandler::RequestFlush() {
  if (requested) return;
  requested = true;
  PollProcessor::Instance()->flushes.push_back(this);
}

PollIdleHandler::PollIdleHandler(bool add) {
  if (add) Add();
}

PollIdleHandler::~PollIdleHandler() {
  if (registered) Remove();
}

void PollIdleHandler::Add() {
  PollProcessor* loop = PollProcessor::Instance();
  loop->idlers.push_back(this);
  loop->idle_finished = false;
  finished = false;
  registered = true;
}

void PollIdleHandler::Remove() {
  PollProcessor* loop = PollProcessor::Instance();
  loop->idlers.remove(this);
  loop->run_idlers.remove(this);
  registered = false;
}

PollSignalHandler::PollSignalHandler(int signo, bool add) {
  if (add) Add(signo);
}

PollSignalHandler::~PollSignalHandler() {
  if (registered) Remove();
}

void PollSignalHandler::Add(int signo) {
  PollProcessor::Instance()->signals[signo].push_back(this);
  {
    // A signal that was caught before, and waits for its first handler, keeps waiting.
    const SignalBlock no_news(signo);
    const bool waiting = sigismember(pending_signals(), signo) == 1;
    catch_signal(pending_signals(), signo);
    if (waiting) sigaddset(pending_signals(), signo);
  }
  registered = true;
}

void PollSignalHandler::Remove() {
  PollProcessor* loop = PollProcessor::Instance();
  for (auto& [signo, handlers] : loop->signals) handlers.remove(this);
  loop->run_signals.remove_if([this](const auto& queued) { return queued.first == this; });
  registered = false;
}
