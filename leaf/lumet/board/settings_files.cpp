#include "leaf/lumet/board/settings_files.h"

#include <cerrno>
#include <exception>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <utility>
#include <vector>

#include "common/errno_error.h"
#include "common/privilege_guard.h"
#include "common/safe_file.h"

class SettingsFiles::Mask {
 public:
  explicit Mask(ConfigTavo& tavo) {
    for (Configurable* item : std::initializer_list<Configurable*>{
             &tavo.Ver(), &tavo.Fpga(), &tavo.Dsp(), &tavo.Name(), &tavo.Ipaddress(),
             &tavo.Serialnumber(), &tavo.Cmd(), &tavo.Cfg().Clock(), &tavo.Cfg().Network(),
             &tavo.Cal(), &tavo.History(), &tavo.Factory()}) {
      // Masks nest when reading the file leads to writing it.
      if (!item->has_flag(Configurable::Active)) continue;
      item->set_flag(Configurable::Active, false);
      masked.push_back(item);
    }
  }
  ~Mask() {
    for (Configurable* item : masked) item->set_flag(Configurable::Active, true);
  }
  Mask(const Mask&) = delete;
  Mask& operator=(const Mask&) = delete;

 private:
  std::vector<Configurable*> masked;
};

SettingsFiles::SettingsFiles(DocTavo& doc, const Paths& paths, const Machine& machine)
    : doc(doc),
      machine(machine),
      factory{paths.factory, saved_factory_count},
      cal{paths.cal, saved_cal_count},
      main{paths.main, saved_main_count} {}

void SettingsFiles::load_factory() {
  ConfigFactoryTavo& part = doc.Conf().Factory();
  part.reset();
  std::istringstream in;
  if (Read(factory, in) && Take(factory, in)) factory.saved_count = part.change_count();
}

void SettingsFiles::load_cal() {
  ConfigCalTavo& part = doc.Conf().Cal();
  part.reset();
  doc.Conf().History().remove_all();
  std::istringstream in;
  // The zeros, and after them their history, if there is one.
  if (!Read(cal, in) || !Take(cal, in) || (in >> std::ws).eof()) return;
  if (Take(cal, in)) cal.saved_count = part.change_count();
}

void SettingsFiles::load_main(const std::function<void()>& fill_in) {
  const Mask mask(doc.Conf());
  doc.reset();
  fill_in();
  std::istringstream in;
  if (Read(main, in) && Take(main, in)) main.saved_count = doc.change_count();
  doc.notify_if_changed();
}

void SettingsFiles::Note(Parts parts) {
  const auto note = [this](File& file, bool wanted) {
    if (wanted && file.saved_count != PartOf(file).change_count()) file.noted = true;
  };
  note(factory, parts.factory);
  note(cal, parts.cal);
  note(main, parts.main);
}

void SettingsFiles::SaveLater(Parts parts) {
  Note(parts);
  if (HasChanges()) const PrivilegeGuard rights(machine);
}

void SettingsFiles::SaveNow(Parts parts) {
  Note(parts);
  SaveChanges();
}

void SettingsFiles::SaveAgain() {
  Note({factory.unsaved, cal.unsaved, main.unsaved});
  SaveChanges();
}

void SettingsFiles::SaveChanges() {
  std::vector<File*> changed;
  for (File* file : all_files) {
    if (!std::exchange(file->noted, false)) continue;
    file->unsaved = file->saved_count != PartOf(*file).change_count();
    if (file->unsaved) changed.push_back(file);
  }
  if (changed.empty()) return;
  const PrivilegeGuard rights(machine);
  std::erase_if(changed, [](const File* file) { return file->bad && !KeepBadFile(file->path); });
  std::vector<Replacement> replacements;
  for (File* file : changed)
    replacements.push_back({file->path, [this, file](std::ostream& out) { Write(*file, out); }});
  ReplaceFiles(replacements);
  for (std::size_t i = 0; i < changed.size(); ++i) {
    if (!replacements[i].done) continue;
    changed[i]->saved_count = PartOf(*changed[i]).change_count();
    changed[i]->unsaved = changed[i]->bad = false;
  }
}

Configurable& SettingsFiles::PartOf(const File& file) const {
  if (&file == &factory) return doc.Conf().Factory();
  if (&file == &cal) return doc.Conf().Cal();
  return doc;
}

void SettingsFiles::Write(const File& file, std::ostream& out) const {
  std::optional<Mask> mask;
  if (&file == &main) mask.emplace(doc.Conf());
  PartOf(file).print_tree(out);
  if (&file == &cal) doc.Conf().History().print_tree(out);
  out << "\n";
}

bool SettingsFiles::Read(File& file, std::istringstream& in) {
  file.bad = false;
  try {
    in.str(ReadWholeFile(file.path));
    return true;
  } catch (const ErrnoError& error) {
    file.bad = error.ErrorNumber() != ENOENT;
    return false;
  }
}

bool SettingsFiles::Take(File& file, std::istream& in) {
  try {
    // If the stream is at its end, the document had no end of its own.
    file.bad = !doc.read_document(in, std::cout).good();
  } catch (const std::exception& error) {
    std::cout << error.what() << "\n";
    file.bad = true;
  }
  return !file.bad;
}
