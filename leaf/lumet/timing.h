#pragma once

// The step from settings to what the signal processor runs by.

// The output rate that the processor can really produce near the one `requested`, both in Hz: a
// divisor of the modulation rate.
unsigned ComputeOutputRate(unsigned modulation_rate, unsigned requested);
