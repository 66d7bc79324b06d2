#include "liborrel/doctavo/config_output_tavo.h"

ConfigOutputTavo::ConfigOutputTavo() : ConfigurableComposite("output") {
  add_all({&waveforms, &status, &dataclock, &datatest, &datarawcapture});
}
