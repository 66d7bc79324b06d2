#pragma once

#include <avahi-common/watch.h>

// Presents the loop in the form that Avahi's client library needs: the library's descriptors become
// items of the loop, its timeouts become timers.
const AvahiPoll* AvahiPollOfLoop();
