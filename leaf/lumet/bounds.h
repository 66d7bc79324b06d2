#pragma once

#include <cstddef>

// How much a head takes from its neighbours and keeps for them, so that nothing that they do makes
// it grow or stand still. docs/operating.md tells what happens beyond each bound.
namespace bounds {

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMiB = 1024 * kKiB;

// Clients that are connected at a time.
constexpr std::size_t kClients = 1200;
// Bytes of one line of a client, and of all lines that have not ended yet.
constexpr std::size_t kLongestRequest = 4 * kMiB;
constexpr std::size_t kUnfinishedInAll = 16 * kMiB;

// Bytes of one answer.
constexpr std::size_t kLongestAnswer = 2 * kMiB;
// Bytes that wait for all clients together; beyond it a client gets what makes no more than this
// share wait for it.
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
