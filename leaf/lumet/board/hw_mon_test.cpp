#include "leaf/lumet/board/hw_mon.h"

#include <filesystem>

#include "common/temporary_directory.h"
#include "common/test_registry.h"

using namespace self_test;

// The kernel's files, with what is written to them.
void HWMonCases() {
  const TemporaryDirectory directory;
  Machine machine;
  int rights = 0;
  machine.set_effective_user = [&](uid_t) {
    ++rights;
    return 0;
  };
  for (const char* name : {"49", "4a", "4b", "4c"})
    directory.Write(std::string("i2c-1/1-00") + name + "/temp1_input",
                    name == std::string("4b") ? "x" : "41500\n");
  HWMon sensors(directory.Path(), machine);
  ExpectEqual(sensors.MaxTemperature(), 0.0F, "before the first pass");
  sensors.Expired();
  ExpectTrue(sensors.Temperatures() == BoardTemperatures{41.5F, 41.5F, 0, 41.5F, 0}, "a pass");
  ExpectEqual(directory.Read("i2c-1/new_device"), "lm75 0x4d", "the one that is missing");
  ExpectTrue(!std::filesystem::exists(directory.Path() + "/i2c-1/delete_device"),
             "nothing to delete");
  std::filesystem::create_directories(directory.Path() + "/i2c-1/1-004d");
  sensors.Expired();
  ExpectEqual(directory.Read("i2c-1/delete_device"), "0x4d", "a device without its file");
  ExpectEqual(rights, 4, "rights taken and given back, twice");
  directory.Write("i2c-1/1-004d/temp1_input", "-12500\n");
  directory.Write("i2c-1/1-0049/temp1_input", "");
  directory.Write("i2c-1/1-004a/temp1_input", "62000\n");
  sensors.Expired();
  ExpectTrue(sensors.Temperatures() == BoardTemperatures{41.5F, 62, 0, 41.5F, -12.5F},
             "what can't be read stays");
  ExpectEqual(sensors.MaxTemperature(), 62.0F);
  ExpectEqual(rights, 4);
}
