#pragma once

#include <poll.h>
#include <sys/time.h>

#include <csignal>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <utility>
#include <vector>

class PollItem;
class PollTimer;
class PollIdleHandler;
class PollSignalHandler;
class PollFlushHandler;

// The one event loop of the process, and of its one thread. Sources register themselves with
// Instance() and are called back through their virtual operations; a source that is a base of a
// larger object registers at construction and removes itself at destruction.
//
// The loop catches nothing: what a handler throws leaves Process.
class PollProcessor {
 public:
  static PollProcessor* Instance();
  PollProcessor(const PollProcessor&) = delete;
  PollProcessor& operator=(const PollProcessor&) = delete;

  // One turn: signals, due timers, then a poll of at most `timeout_ms` (negative: no limit) and
  // what it found, or the idle handlers if it found nothing; and what these asked to be flushed.
  // The wait for a timer is rounded up to the next millisecond. False once Quit was called. Throws
  // ErrnoError when poll fails with anything but EINTR.
  bool Process(int timeout_ms);

  // Makes Process return false from now on; there is no way back.
  void Quit() { quit = true; }

  // Makes `signo` call Quit.
  void AddQuitSignal(int signo);

 private:
  friend class PollItem;
  friend class PollTimer;
  friend class PollIdleHandler;
  friend class PollSignalHandler;
  friend class PollFlushHandler;
  class _QuitSignalHandler;

  PollProcessor();
  ~PollProcessor();

  void SignalPass();
  int TimerPass(int timeout_ms);
  void RebuildDescriptors();
  PollItem* FindItem(int fd);
  void DescriptorPass();
  void IdlePass();
  void FlushPass();
  void NoteActivity();

  std::vector<struct pollfd> fds;  // what poll is given; follows `items` when `fds_dirty`
  // The first item of each descriptor, indexed by it, as it was when `fds` was made; null where
  // there is none, or where it has been removed since.
  std::vector<PollItem*> item_by_fd;
  // All in the order of registration.
  std::list<PollItem*> items;
  std::list<PollTimer*> timers;
  std::list<PollIdleHandler*> idlers;
  std::map<int, std::list<PollSignalHandler*>> signals;
  bool fds_dirty = true;
  bool idle_started = false;   // an idle pass has run since the last activity
  bool idle_finished = false;  // every idle handler is done
  // Work queues of the pass that runs; removing a source takes it out of them too.
  std::list<PollTimer*> due_timers;
  std::list<PollIdleHandler*> run_idlers;
  std::list<std::pair<PollSignalHandler*, int>> run_signals;
  std::vector<PollFlushHandler*> flushes;  // asked for in this pass
  bool quit = false;
  std::unique_ptr<_QuitSignalHandler> quit_handler;
};

// A descriptor on the loop.
class PollItem {
 public:
  // `event_mask` holds the bits of poll(2); `add` registers at once.
  PollItem(unsigned short event_mask, bool add);
  virtual ~PollItem();
  PollItem(const PollItem&) = delete;
  PollItem& operator=(const PollItem&) = delete;

  // The descriptor to poll; an item whose descriptor is negative, or whose mask is 0, is not
  // polled, and stays registered.
  virtual int GetFD() = 0;
  // Calls one handler for each bit in `revents`, in the order below, for as long as the item is
  // still registered.
  virtual void HandleEvents(int revents);
  virtual void HandleRead() {}
  virtual void HandlePriority() { HandleRead(); }
  virtual void HandleWrite() {}
  virtual void HandleError() {}
  virtual void HandleInvalid() {}
  virtual void HandleHangup() {}
  virtual const char* GetName() { return "PollItem"; }

  void Add();
  void Remove();
  void SetEvents(unsigned short event_mask);
  unsigned short GetEvents() const { return events; }

 private:
  friend class PollProcessor;
  unsigned short events;
  bool registered = false;
};

// A moment at which the loop calls Expired. Times are milliseconds on the steady clock. Arming in
// any way has no effect on a timer that is not registered; each expiry disarms.
class PollTimer {
 public:
  // A negative `timeout_ms` leaves the timer unarmed.
  PollTimer(int timeout_ms, bool add);
  virtual ~PollTimer();
  PollTimer(const PollTimer&) = delete;
  PollTimer& operator=(const PollTimer&) = delete;

  virtual void Expired() = 0;
  virtual const char* GetName() { return "PollTimer"; }

  void Add();
  void AddIfNeeded();
  void Remove();
  // Expires `ms` from now; negative disarms.
  void SetTimeout(int ms);
  // Expires at the system time `when`, converted once: a later step of the system clock does not
  // move it. A moment in the past means now; nullptr disarms.
  void SetExpiry(const struct timeval* when);
  // Expires `ms` after the last due time, however late that was handled, so that a period does not
  // drift; negative disarms.
  void Extend(int ms);
  bool IsArmed() const { return armed; }

 private:
  friend class PollProcessor;
  std::int64_t expiry = 0;  // nanoseconds on the steady clock
  bool registered = false;
  bool armed = false;
};

// Work that is done once at the end of the pass in which it is asked for, however often that was.
class PollFlushHandler {
 public:
  PollFlushHandler() = default;
  virtual ~PollFlushHandler();
  PollFlushHandler(const PollFlushHandler&) = delete;
  PollFlushHandler& operator=(const PollFlushHandler&) = delete;

  virtual void Flush() = 0;
  void RequestFlush();

 private:
  friend class PollProcessor;
  bool requested = false;
};

// Work for when nothing else is to be done.
class PollIdleHandler {
 public:
  explicit PollIdleHandler(bool add);
  virtual ~PollIdleHandler();
  PollIdleHandler(const PollIdleHandler&) = delete;
  PollIdleHandler& operator=(const PollIdleHandler&) = delete;

  // True asks for another pass; false means done until the next activity of the loop.
  virtual bool Idle() = 0;
  virtual const char* GetName() { return "PollIdleHandler"; }

  void Add();
  void Remove();

 private:
  friend class PollProcessor;
  bool registered = false;
  bool finished = false;
};

// Listens for signals. Several deliveries between two turns of the loop count as one. A signal that
// arrives between the signal pass and poll is seen at the next wake-up.
class PollSignalHandler {
 public:
  PollSignalHandler(int signo, bool add);
  virtual ~PollSignalHandler();
  PollSignalHandler(const PollSignalHandler&) = delete;
  PollSignalHandler& operator=(const PollSignalHandler&) = delete;

  virtual void HandleSignal(int signo) = 0;
  virtual const char* GetName() { return "PollSignalHandler"; }

  // May be called for several signals. One that was caught before and not handled yet is handled at
  // the next turn. Throws ErrnoError when the catcher can't be installed.
  void Add(int signo);
  // Removes it from all its signals.
  void Remove();

 private:
  friend class PollProcessor;
  bool registered = false;
};
