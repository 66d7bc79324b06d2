#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/platform.h"
#include "liborrel/doctavo/doc_tavo.h"

// The three settings files of the head, each a document from the root of the tree: the factory
// values, the zeros with their history, and all the rest. A missing file leaves the defaults; what
// stands before an error in a bad one is taken, and the errors go to standard output.
class SettingsFiles {
 public:
  // Both must outlive this.
  SettingsFiles(DocTavo& document, const Platform& where);

  void load_factory();
  void load_cal();
  // `fill_in` puts in what comes from elsewhere, behind the reset and ahead of the file. Tells the
  // document's listeners if it has changed.
  void load_main(const std::function<void()>& fill_in);

  // Each writes its file if its part of the tree has changed since it was last read or written.
  // What can't be written is tried again at the next change. Throws std::runtime_error when rights
  // can't be had.
  void save_factory();
  void save_cal();
  void save_main();

 private:
  struct File {
    std::string path;
    std::uint32_t& saved_count;
  };
  // Hides, for the length of a scope, what never goes into the main file.
  class Mask;

  void Save(File& file, Configurable& part, const std::vector<Configurable*>& documents);

  DocTavo& doc;
  const Platform& platform;
  // The change_count of each part when its file last agreed with it.
  std::uint32_t saved_factory_count = 0;
  std::uint32_t saved_cal_count = 0;
  std::uint32_t saved_main_count = 0;
  File factory;
  File cal;
  File main;
};
