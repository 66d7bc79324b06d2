#include <ostream>

void DSPDeviceCases();
void MeasurementCases();
void TestLumet(std::ostream& out);

// The measurement core, from the wire to the row.
void TestLumet(std::ostream&) {
  DSPDeviceCases();
  MeasurementCases();
}
