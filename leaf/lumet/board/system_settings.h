#pragma once

#include <ctime>

#include "common/system_clock.h"
#include "liborrel/doctavo/doc_tavo.h"
#include "liborrel/network_config.h"
#include "liborrel/ptp_config.h"

// The settings of the head that stand for settings of its operating system: clock, time zone, PTP,
// host name and addresses.
class SystemSettings {
 public:
  // All must outlive this.
  SystemSettings(SystemClock& system_clock, PtpConfig& ptp_service, NetworkConfig& network)
      : system_clock(system_clock), ptp_service(ptp_service), network(network) {}

  // Fills in the zones that the document offers, unless it has them already.
  void FillInZones(ConfigTavo& tavo) const;
  // Fills in the values of the system, without change marks.
  void FillIn(ConfigTavo& tavo) const;
  // Carries what is marked through to the system: each setting, even if one before it fails. Throws
  // std::runtime_error for a text that is not a date or time, for a zone that is not in the list,
  // for what the system refuses, and when rights can't be had; of several failures the first is
  // thrown and the others are printed.
  void Apply(ConfigTavo& tavo);
  // Tries again what could not be written to the system's files. Throws as Apply.
  void SaveAgain();

 private:
  void ApplyNetwork(ConfigCfgNetwork& settings);
  void ApplyClock(ConfigCfgClock& settings);
  // Without effect while the clock belongs to a PTP master.
  void SetClock(std::time_t seconds);

  SystemClock& system_clock;
  PtpConfig& ptp_service;
  NetworkConfig& network;
};
