#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "benchmarks/figure.h"

// What one benchmark measures, and what it has found out.
struct Section {
  std::string title;
  std::string how;  // how it is measured, in sentences
  std::vector<Figure> figures;
  // The same figures on other processors, if it was measured there.
  struct Other {
    std::string processor;
    std::vector<Figure> figures;
  };
  std::vector<Other> others;
};

// Writes the page docs/performance.md: ratios and counts, but no times, which would be those of one
// machine.
void WritePage(std::ostream& out, const std::vector<Section>& sections);
