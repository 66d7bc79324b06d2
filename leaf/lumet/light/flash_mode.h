#pragma once

// The flash that the signal processor is set up for.
enum class FlashMode { kRect, kMultiPhase, kZero, kInduction };
