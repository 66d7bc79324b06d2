#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"
#include "liborrel/doctavo/config_cal_tavo.h"
#include "liborrel/doctavo/config_cfg_tavo.h"
#include "liborrel/doctavo/config_cmd_tavo.h"
#include "liborrel/doctavo/config_factory_tavo.h"
#include "liborrel/doctavo/config_output_tavo.h"

// All settings, commands and values of one head.
class ConfigTavo : public ConfigurableComposite {
 public:
  ConfigTavo();

  ConfigurableBool& Ack() { return ack; }
  ConfigurableString& Ver() { return ver; }
  ConfigurableString& Fpga() { return fpga; }
  ConfigurableString& Dsp() { return dsp; }
  ConfigurableString& Name() { return instrument_name; }
  ConfigurableStringProxyReadOnly& Serialnumber() { return serialnumber; }
  ConfigurableString& Ipaddress() { return ipaddress; }
  ConfigOutputTavo& Output() { return output; }
  ConfigCfgTavo& Cfg() { return cfg; }
  ConfigCalTavo& Cal() { return cal; }
  ConfigCalHistoryTavo& History() { return history; }
  ConfigCmdTavo& Cmd() { return cmd; }
  ConfigFactoryTavo& Factory() { return factory; }
  ConfigurableString& Error() { return error; }

  // Whether something has changed that clients hear of as a change of the configuration. Commands,
  // records and the last error alone do not count.
  bool needs_saving() const;

 private:
  // Ahead of the item that shows its serial number.
  ConfigFactoryTavo factory;
  ConfigurableStringProxyReadOnly serialnumber{"serialnumber", &factory.Serialnumber()};
  ConfigurableBool ack{"ack", true};
  ConfigurableString ver{"ver", ""};
  ConfigurableString fpga{"fpga", ""};
  ConfigurableString dsp{"dsp", ""};
  ConfigurableString instrument_name{"name", ""};
  ConfigurableString ipaddress{"ipaddress", ""};
  ConfigOutputTavo output;
  ConfigCfgTavo cfg;
  ConfigCalTavo cal;
  ConfigCalHistoryTavo history;
  ConfigCmdTavo cmd;
  ConfigurableString error{"error", ""};
};
