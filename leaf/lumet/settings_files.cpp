#include "leaf/lumet/settings_files.h"

#include <fstream>
#include <initializer_list>
#include <iostream>

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

SettingsFiles::SettingsFiles(DocTavo& document, const Platform& where)
    : doc(document),
      platform(where),
      factory{where.factory_settings, saved_factory_count},
      cal{where.cal_settings, saved_cal_count},
      main{where.main_settings, saved_main_count} {}

void SettingsFiles::load_factory() {
  ConfigFactoryTavo& part = doc.Conf().Factory();
  part.reset();
  std::ifstream file(factory.path);
  if (!file) return;
  if (doc.read_document(file, std::cout).good()) factory.saved_count = part.change_count();
}

void SettingsFiles::load_cal() {
  ConfigCalTavo& part = doc.Conf().Cal();
  part.reset();
  doc.Conf().History().remove_all();
  std::ifstream file(cal.path);
  if (!file) return;
  // The zeros, and behind them their history.
  if (doc.read_document(file, std::cout).good() && doc.read_document(file, std::cout).good())
    cal.saved_count = part.change_count();
}

void SettingsFiles::load_main(const std::function<void()>& fill_in) {
  const Mask mask(doc.Conf());
  doc.reset();
  fill_in();
  std::ifstream file(main.path);
  if (file && doc.read_document(file, std::cout).good()) main.saved_count = doc.change_count();
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

void SettingsFiles::Save(File& file, Configurable& part,
                         const std::vector<Configurable*>& documents) {
  if (file.saved_count == part.change_count()) return;
  const PrivilegeGuard rights(platform);
  const bool saved = ReplaceFile(file.path, [&](std::ostream& out) {
    for (Configurable* document : documents) document->print_tree(out);
    out << "\n";
  });
  if (saved) file.saved_count = part.change_count();
}
