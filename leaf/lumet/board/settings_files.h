#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <istream>
#include <ostream>
#include <sstream>
#include <string>

#include "common/machine.h"
#include "liborrel/doctavo/doc_tavo.h"

// The three settings files of the head, each a document from the root of the tree: the factory
// values, the zeros with their history, and all the rest. A file that is missing or can't be read
// leaves the defaults; what comes before an error in a bad one is taken, and the errors go to
// standard output. A file that could not be read to the end of its document is kept under its name
// with ".bad" appended before it is replaced.
class SettingsFiles {
 public:
  struct Paths {
    std::string factory;
    std::string cal;
    std::string main;
  };

  // `doc` and `machine` must outlive this.
  SettingsFiles(DocTavo& doc, const Paths& paths, const Machine& machine);

  void load_factory();
  void load_cal();
  // `fill_in` puts in what comes from elsewhere, after the reset and before the file. Tells the
  // document's listeners if it has changed.
  void load_main(const std::function<void()>& fill_in);

  // Parts of the settings, each with a file of its own.
  struct Parts {
    bool factory = false;
    bool cal = false;
    bool main = false;
  };

  // Notes the parts in which SaveChanges must save what has changed. Throws std::runtime_error when
  // rights can't be had, so that whoever made the change learns of it.
  void SaveLater(Parts parts);
  // Whether there is something that was noted and not tried to save yet.
  bool HasChanges() const { return factory.noted || cal.noted || main.noted; }
  // Writes the files of what was noted, if it has changed since they were last read or written.
  // What can't be written is a line on standard output, and is left for the next change or
  // SaveAgain. Throws std::runtime_error when rights can't be had.
  void SaveChanges();
  // Also saves what could not be saved before. Fails as SaveChanges does.
  void SaveAgain();
  // One part at once. Each fails as SaveChanges does.
  void save_factory() { SaveNow({.factory = true}); }
  void save_cal() { SaveNow({.cal = true}); }
  void save_main() { SaveNow({.main = true}); }

 private:
  struct File {
    std::string path;
    std::uint32_t& saved_count;
    bool noted = false;    // to be saved by SaveChanges
    bool unsaved = false;  // the last attempt to write it failed
    bool bad = false;      // it holds what was not read
  };
  // Hides, for the length of a scope, what never goes into the main file.
  class Mask;

  // Opens the text of a file; false if it is missing or can't be read.
  static bool Read(File& file, std::istringstream& in);
  // Takes one document from a file that is read; false unless it was whole.
  bool Take(File& file, std::istream& in);
  void Note(Parts parts);
  void SaveNow(Parts parts);
  // The part of the document that `file` holds.
  Configurable& PartOf(const File& file) const;
  void Write(const File& file, std::ostream& out) const;

  DocTavo& doc;
  const Machine& machine;
  // The change_count of each part when its file last agreed with it.
  std::uint32_t saved_factory_count = 0;
  std::uint32_t saved_cal_count = 0;
  std::uint32_t saved_main_count = 0;
  File factory;
  File cal;
  File main;
  // In the order in which they are saved.
  const std::array<File*, 3> all_files = {&factory, &cal, &main};
};
