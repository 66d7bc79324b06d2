#include "leaf/lumet/board/settings_files.h"

#include <cerrno>
#include <exception>
#include <initializer_list>
#include <iostream>

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

SettingsFiles::SettingsFiles(DocTavo& document, const Paths& paths, const Machine& machine)
    : doc(document),
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
  // The zeros, and behind them their history, if there is one.
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

void SettingsFiles::save_factory() { Save(factory, doc.Conf().Factory(), {&doc.Conf().Factory()}); }

void SettingsFiles::save_cal() {
  Save(cal, doc.Conf().Cal(), {&doc.Conf().Cal(), &doc.Conf().History()});
}

void SettingsFiles::save_main() {
  const Mask mask(doc.Conf());
  Save(main, doc, {&doc});
}

void SettingsFiles::SaveAgain() {
  if (factory.unsaved) save_factory();
  if (cal.unsaved) save_cal();
  if (main.unsaved) save_main();
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
    // At the end of the stream the document had none.
    file.bad = !doc.read_document(in, std::cout).good();
  } catch (const std::exception& error) {
    std::cout << error.what() << "\n";
    file.bad = true;
  }
  return !file.bad;
}

void SettingsFiles::Save(File& file, Configurable& part,
                         const std::vector<Configurable*>& documents) {
  file.unsaved = file.saved_count != part.change_count();
  if (!file.unsaved) return;
  const PrivilegeGuard rights(machine);
  if (file.bad && !KeepBadFile(file.path)) return;
  const bool saved = ReplaceFile(file.path, [&](std::ostream& out) {
    for (Configurable* document : documents) document->print_tree(out);
    out << "\n";
  });
  if (!saved) return;
  file.saved_count = part.change_count();
  file.unsaved = file.bad = false;
}
