#include "leaf/lumet/light/light_controller.h"

#include <cmath>

#include "common/test_registry.h"

using namespace self_test;

void LightControllerCases() {
  DocTavo doc;
  LumetLightController controller(doc, false);
  ConfigLightSourceTavo& light = doc.Conf().Cfg().Lightsource();
  ConfigurableInteger& outrate = doc.Conf().Cfg().Measure().Outrate();
  light.Control().set(ConfigLightSourceModeTavo::Setpoint);
  light.RedMix().set(3);
  // With all calibration at its default, counts are flux.
  const auto feed = [&](float setpoint, int rate, float q, int samples) {
    doc.set_changed(false);
    light.QSetpoint().set(setpoint);
    outrate.set(rate);
    doc.notify_if_changed();
    std::string updates;
    for (int i = 0; i < samples; ++i) updates += controller.Step(q) ? "!" : ".";
    return updates + std::to_string(controller.GetDac(0));
  };
  doc.notify();
  const struct {
    const char* name;
    float setpoint;
    int rate;
    float q;
    int samples;
    const char* expected;
  } rows[] = {
      {"an error of 100: integral 50, drive (500 + 100) / 10", 100, 10, 0, 5, "....!60"},
      {"an error of 60: integral 80, drive (800 + 60) / 10", 100, 10, 40, 10, "....!....!116"},
      {"no error at another rate: the integral term, of 110, stays", 100, 9, 100, 4, "...!110"},
      {"beyond the DAC: the integral stays as it was", 1e9F, 9, 100, 4, "...!65535"},
      {"and back", 100, 9, 100, 4, "...!110"},
      {"no number", std::nanf(""), 9, 100, 4, "...!0"},
      {"and back again", 100, 9, 100, 4, "...!110"},
      {"off is reported once", 0, 9, 100, 3, "!..0"},
  };
  for (const auto& row : rows)
    ExpectEqual(feed(row.setpoint, row.rate, row.q, row.samples), row.expected, row.name);
  light.Control().set(ConfigLightSourceModeTavo::Percent);
  doc.notify();
  ExpectEqual(feed(100, 10, 0, 6), "......0", "not in charge");
}
