#pragma once

#include "configurable/child.h"
#include "liborrel/doctavo/config_cal_tavo.h"
#include "liborrel/doctavo/config_cfg_tavo.h"
#include "liborrel/doctavo/config_cmd_tavo.h"
#include "liborrel/doctavo/config_factory_tavo.h"
#include "liborrel/doctavo/config_output_tavo.h"

// All settings, commands and values of one head.
class ConfigTavo : public ConfigurableComposite {
 public:
  ConfigTavo();

  BoolLeaf Ack{this, "ack", units::kNone, "Ends the answer to a request", true};
  StringLeaf Ver{this, "ver", units::kNone, "Version of the software", ""};
  StringLeaf Fpga{this, "fpga", units::kNone, "Version of the FPGA", ""};
  StringLeaf Dsp{this, "dsp", units::kNone, "Version of the signal processor", ""};
  StringLeaf Name{this, "name", units::kNone, "Host name of the instrument", ""};
  Child<ConfigurableStringProxyReadOnly> Serialnumber{this, "serialnumber", units::kNone,
                                                      "Serial number of the instrument", nullptr};
  StringLeaf Ipaddress{this, "ipaddress", units::kNone, "Address in force", ""};
  Child<ConfigOutputTavo> Output{this,
                                 "Switches of the outgoing streams, separate for each client"};
  Child<ConfigCfgTavo> Cfg{this, "How the head measures"};
  Child<ConfigCalTavo> Cal{this, "The zeros in force"};
  Child<ConfigCalHistoryTavo> History{this, "The zeros that were taken"};
  Child<ConfigCmdTavo> Cmd{this, "Commands; each acts when it becomes true"};
  Child<ConfigFactoryTavo> Factory{this, "What belongs to this one instrument"};
  StringLeaf Error{this, "error", units::kNone, "The last error reported to a client", ""};

  // Whether something has changed that clients hear of as a change of the configuration. Commands,
  // records and the last error alone do not count.
  bool needs_saving() const;
};
