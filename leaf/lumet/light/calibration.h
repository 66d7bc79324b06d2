#pragma once

#include "leaf/lumet/light/light_quantities.h"
#include "leaf/lumet/link/dsp_records.h"
#include "liborrel/doctavo/config_tavo.h"

// The calibration of the head in the forms in which it is used: for the light quantities of a
// sample, and for the processor.
LightCalibration LightCalibrationOf(const ConfigTavo& tavo);
BiasConfig BiasConfigOf(const ConfigTavo& tavo);
