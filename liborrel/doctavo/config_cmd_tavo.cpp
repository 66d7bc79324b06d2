#include "liborrel/doctavo/config_cmd_tavo.h"

ConfigCmdTavo::ConfigCmdTavo() : ConfigurableComposite("cmd") {
  add_all({&rect, &mpf, &induction, &dark, &zero_dc0, &zero_pc0, &break_command, &reset_command,
           &reboot, &rawcapture, &redmodon, &redmodoff, &testvecton, &testvectoff});
}
