#include "leaf/lumet/light/zeroing.h"

#include <cmath>

#include "common/test_registry.h"

using namespace self_test;

void ZeroingCases() {
  DocTavo doc;
  const Machine machine;
  Zeroing zeroing(doc, "", machine);
  const auto feed = [&](std::uint16_t code, float dc, float pc, int samples) {
    std::string taken;
    for (int i = 0; i < samples; ++i) taken += zeroing.Take(0, dc, pc, code).value_or(".");
    return taken + std::to_string(doc.Conf().Cal().DC0().get()) + " " +
           std::to_string(doc.Conf().Cal().Pc0().get());
  };
  ExpectEqual(feed(3, 12.5F, 7, 6), "......0 0", "not armed");
  zeroing.ArmDC0();
  feed(3, 12.5F, 7, 4);
  feed(1, 99, 99, 2);
  ExpectEqual(feed(3, 12.5F, 7, 2), "DC0.13 0", "the fifth sample of flashes, in the second");
  zeroing.ArmDC0();
  feed(3, 0, 0, 3);
  zeroing.ArmPc0();
  ExpectEqual(feed(3, 5, -12.5F, 5), "....Pc013 -13", "one takes the place of the other");
  zeroing.ArmDC0();
  ExpectEqual(feed(3, 0.4F, 0, 5), "....DC013 -13");
  zeroing.ArmDC0();
  ExpectEqual(feed(3, std::nanf(""), 0, 5), "....DC013 -13");
}
