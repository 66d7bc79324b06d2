#include "bench/settings_reference.h"

#include <ostream>
#include <string>
#include <string_view>

#include "configurable/configurable_attributes.h"
#include "configurable/configurable_composite.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

constexpr const char* kIntroduction =
    "# All settings\n"
    "\n"
    "This page is printed by `./dev bench --print-reference`; a test fails when it is out of "
    "date.\n"
    "`docs/settings.md` tells the language in which settings are read and written. Numbers "
    "outside\n"
    "their range are set to its nearest bound. Paths begin below `nemra/tavo`.\n";

struct Type {
  std::string kind;
  std::string range;
};

// Of the description in braces, such as "integer:5;0...10" or "off|auto".
Type TypeOf(const Configurable& item) {
  std::string text = item.doctype_text();
  if (text == "true|false") return {"bool", "`true`, `false`"};
  if (text == "int.int.int.int") return {"address", "IPv4"};
  if (const auto* choice = dynamic_cast<const ConfigurableMultipleChoice*>(&item)) {
    std::string texts;
    for (const std::string& one : choice->choices())
      texts += (texts.empty() ? "`" : ", `") + one + "`";
    return {"choice", texts};
  }
  const std::size_t range = text.find("...");
  const std::size_t range_start = range == std::string::npos ? range : text.rfind(';', range);
  Type type = {text.substr(0, text.find_first_of(":;")), ""};
  if (type.kind.find_first_not_of("abcdefghijklmnopqrstuvwxyz") != std::string::npos)
    return {"time", "`" + text + "`"};  // a form
  if (range_start == std::string::npos) return type;
  type.range = text.substr(range_start + 1);
  constexpr std::string_view kNoEnd = "...2147483647";
  if (type.range.ends_with(kNoEnd))
    type.range = "≥ " + type.range.substr(0, type.range.size() - kNoEnd.size());
  return type;
}

std::string UnitOf(const Configurable& item) {
  const ConfigurableAttributes* const attributes = item.attributes();
  const Configurable* const unit = attributes == nullptr ? nullptr : attributes->find("units");
  return unit == nullptr ? "" : unit->value_text();
}

void PrintLeaf(const Configurable& leaf, bool has_default, std::ostream& out) {
  const Type type = TypeOf(leaf);
  const std::string value = has_default ? leaf.value_text() : "";
  out << "| `" << leaf.name() << "` | " << type.kind << " | " << type.range << " | " << UnitOf(leaf)
      << " | " << (value.empty() ? "" : "`" + value + "`") << " | " << leaf.meaning() << " |\n";
}

// The leaves of a branch in a table, and then each branch of it.
void PrintBranch(const ConfigurableComposite& branch, const std::string& path,
                 std::string_view meaning, std::ostream& out, bool has_defaults = true) {
  bool any_leaf = false;
  out << "\n## " << (path.empty() ? "The head's own element" : "`" + path + "`") << "\n\n"
      << meaning << ".\n";
  for (const Configurable* child : branch.children()) {
    if (dynamic_cast<const ConfigurableComposite*>(child) != nullptr) continue;
    if (!any_leaf)
      out << "\n| setting | type | range or choices | unit | default | meaning |\n"
             "|---|---|---|---|---|---|\n";
    any_leaf = true;
    PrintLeaf(*child, has_defaults, out);
  }
  for (const Configurable* child : branch.children())
    if (const auto* below = dynamic_cast<const ConfigurableComposite*>(child))
      PrintBranch(*below, path + (path.empty() ? "" : "/") + below->name(), below->meaning(), out);
  if (dynamic_cast<const ConfigCalHistoryTavo*>(&branch) == nullptr) return;
  const ConfigCalRecordTavo record("record");
  PrintBranch(record, path + "/record", "One zero that was taken", out, false);
}

}  // namespace

void PrintSettingsReference(std::ostream& out) {
  const DocTavo doc;
  out << kIntroduction;
  PrintBranch(doc.Conf(), "", "What the head tells of itself", out);
}
