#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <sstream>
#include <string>
#include <vector>

#include "common/machine.h"
#include "liborrel/doctavo/doc_tavo.h"

// The three settings files of the head, each a document from the root of the tree: the factory
// values, the zeros with their history, and all the rest. A file that is missing or can't be read
// leaves the defaults; what stands before an error in a bad one is taken, and the errors go to
// standard output. A file that could not be read to the end of its document is kept under its name
// with ".bad" behind it before it is replaced.
class SettingsFiles {
 public:
  struct Paths {
    std::string factory;
    std::string cal;
    std::string main;
  };

  // `document` and `machine` must outlive this.
  SettingsFiles(DocTavo& document, const Paths& paths, const Machine& machine);

  void load_factory();
  void load_cal();
  // `fill_in` puts in what comes from elsewhere, behind the reset and ahead of the file. Tells the
  // document's listeners if it has changed.
  void load_main(const std::function<void()>& fill_in);

  // Each writes its file if its part of the tree has changed since it was last read or written.
  // What can't be written is a line on standard output, and is left for the next change or
  // SaveAgain. Throws std::runtime_error when rights can't be had.
  void save_factory();
  void save_cal();
  void save_main();
  // Saves what could not be saved. Fails as they do.
  void SaveAgain();

 private:
  struct File {
    std::string path;
    std::uint32_t& saved_count;
    bool unsaved = false;  // the last attempt to write it failed
    bool bad = false;      // it holds what was not read
  };
  // Hides, for the length of a scope, what never goes into the main file.
  class Mask;

  // Opens the text of a file; false if it is missing or can't be read.
  static bool Read(File& file, std::istringstream& in);
  // Takes one document from a file that is read; false unless it was whole.
  bool Take(File& file, std::istream& in);
  void Save(File& file, Configurable& part, const std::vector<Configurable*>& documents);

  DocTavo& doc;
  const Machine& machine;
  // The change_count of each part when its file last agreed with it.
  std::uint32_t saved_factory_count = 0;
  std::uint32_t saved_cal_count = 0;
  std::uint32_t saved_main_count = 0;
  File factory;
  File cal;
  File main;
};
