#pragma once

#include <avahi-common/watch.h>

// The loop as Avahi's client library wants to see it: its descriptors become items of the loop, its
// timeouts timers.
const AvahiPoll* AvahiPollOfLoop();
