#include <ostream>

void DSPDeviceCases();
void EventCases();
void MeasurementCases();
void MonitorCases();
void TestLumet(std::ostream& out);

// The measurement core, from the wire to the row.
void TestLumet(std::ostream&) {
  DSPDeviceCases();
  MeasurementCases();
  EventCases();
  MonitorCases();
}
