#pragma once

#include <avahi-common/watch.h>

// The loop, as Avahi's client library wants to see it: the library's descriptors become items of
// the loop, its timeouts become timers.
const AvahiPoll* AvahiPollOfLoop();
