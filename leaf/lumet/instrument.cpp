#include "leaf/lumet/instrument.h"

#include <utility>

// The paths that are options of the build come from CMakeLists.txt.
Instrument::Instrument(std::string root_directory)
    : root(std::move(root_directory)),
      ptp_options(root + LUMET_PTP_OPTIONS),
      ptp_script(root + LUMET_PTP_SCRIPT),
      reboot(LUMET_REBOOT),
      poweroff(LUMET_POWEROFF) {}
