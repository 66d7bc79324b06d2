#pragma once

#include <cstddef>

// How much a head accepts from its neighbours and keeps for them, so that nothing they do makes it
// grow without limit or stall. docs/operating.md says what happens beyond each bound.
namespace bounds {

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMiB = 1024 * kKiB;

// Clients connected at a time.
constexpr std::size_t kClients = 1200;
// Bytes of one line from a client, and of all unfinished lines together.
constexpr std::size_t kLongestRequest = 4 * kMiB;
constexpr std::size_t kUnfinishedInAll = 16 * kMiB;

// Bytes of one answer.
constexpr std::size_t kLongestAnswer = 2 * kMiB;
// Bytes queued for all clients together; beyond it a client gets only what keeps its own queue
// within this share.
constexpr std::size_t kQueuedInAll = 8 * kMiB;
constexpr std::size_t kQueuedShare = 16 * kKiB;

// Standing queries of one client, bytes of one, and bytes of all clients' together.
constexpr std::size_t kStandingQueries = 64;
constexpr std::size_t kLongestStandingQuery = 16 * kKiB;
constexpr std::size_t kStandingInAll = kMiB;

// Records of zeros.
constexpr std::size_t kHistoryRecords = 10'000;

// Samples of one flash or dark pulse: eight seconds at full rate, more than the longest induction.
constexpr std::size_t kEventSamples = 2'000'000;

}  // namespace bounds
