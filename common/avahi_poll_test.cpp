#include "common/avahi_poll.h"

#include <sys/time.h>
#include <unistd.h>

#include <array>

#include "common/errno_error.h"
#include "common/poll_processor.h"
#include "common/test_registry.h"

using namespace self_test;

// What a library sees of the loop through Avahi's table.
void AvahiPollCases() {
  const AvahiPoll& table = *AvahiPollOfLoop();
  std::array<int, 2> ends = {};
  if (pipe(ends.data()) != 0) throw ErrnoError("pipe");
  struct Seen {
    const AvahiPoll& table;
    std::string log;
    bool free_next = false;
  } seen{table, "", false};
  AvahiWatch* watch = table.watch_new(
      &table, ends[0], static_cast<AvahiWatchEvent>(AVAHI_WATCH_IN | AVAHI_WATCH_ERR),
      [](AvahiWatch* self, int, AvahiWatchEvent event, void* data) {
        auto* what = static_cast<Seen*>(data);
        what->log +=
            std::to_string(event) + std::to_string(what->table.watch_get_events(self)) + " ";
        if (what->free_next) what->table.watch_free(self);
      },
      &seen);
  const auto turn = [&] {
    seen.log.clear();
    PollProcessor::Instance()->Process(0);
    return seen.log;
  };
  ExpectEqual(turn(), "", "nothing to read");
  ExpectEqual(write(ends[1], "x", 1), ssize_t{1});
  ExpectEqual(turn(), "10 ", "an event, and none during its callback");
  ExpectEqual(int{table.watch_get_events(watch)}, int{AVAHI_WATCH_IN});
  table.watch_update(watch, AVAHI_WATCH_OUT);
  ExpectEqual(turn(), "", "reading is no longer wanted");
  table.watch_update(watch, AVAHI_WATCH_IN);
  seen.free_next = true;
  // A hang-up comes at once, as when a daemon dies.
  close(ends[1]);
  ExpectEqual(turn(), "10 ", "a callback that frees its watch");
  ExpectEqual(turn(), "");
  close(ends[0]);

  struct timeval when = {};
  gettimeofday(&when, nullptr);
  when.tv_sec -= 5;
  AvahiTimeout* timeout = table.timeout_new(
      &table, &when, [](AvahiTimeout*, void* data) { static_cast<Seen*>(data)->log += "due "; },
      &seen);
  ExpectEqual(turn() + turn(), "due ", "a moment in the past, once");
  table.timeout_update(timeout, &when);
  table.timeout_update(timeout, nullptr);
  ExpectEqual(turn(), "", "disarmed");
  when.tv_sec += 3600;
  table.timeout_update(timeout, &when);
  ExpectEqual(turn(), "", "in an hour");
  table.timeout_update(nullptr, &when);
  table.timeout_free(timeout);
  table.timeout_free(nullptr);
}
