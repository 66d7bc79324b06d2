#include <ostream>

// Each is defined in the *_test.cpp beside the code that it checks.
void DSPDeviceCases();
void SampleClockCases();
void RawCaptureCases();
void LightQuantitiesCases();
void OutputRateCases();
void LightControllerCases();
void ZeroingCases();
void LinearFitCases();
void EventRecordCases();
void RowsCases();
void AnnouncementCases();
void DiagnosticsCases();
void HWMonCases();
void RunTimeEventLoggerCases();

// The measurement core, from the wire to the row.
void TestLumet(std::ostream&) {
  DSPDeviceCases();
  SampleClockCases();
  RawCaptureCases();
  LightQuantitiesCases();
  OutputRateCases();
  LightControllerCases();
  ZeroingCases();
  LinearFitCases();
  EventRecordCases();
  RowsCases();
  AnnouncementCases();
  DiagnosticsCases();
  HWMonCases();
  RunTimeEventLoggerCases();
}
