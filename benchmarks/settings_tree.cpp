// What the settings tree costs compared with pugixml, a fast in-memory XML library, on the same
// bytes: (a) answering &query; on the root, against printing a parsed document; (b) reading a full
// settings file into the tree, against parsing it and walking it by name into typed values; (c) one
// small write with its answer, against parsing the write, setting the value in a parsed document
// and printing the answer.
//
// Instructions are counted by callgrind: this program runs itself under it at two lengths, and the
// difference is what the turns in between took.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "benchmarks/callgrind.h"
#include "benchmarks/figure.h"
#include "common/temporary_directory.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

const std::string kWrite =
    "<nemra><tavo><cfg><lightsource><Q_setpoint>350.5</Q_setpoint></lightsource></cfg></tavo>"
    "</nemra>\n";

// A sink without a cost of its own.
struct StringWriter : pugi::xml_writer {
  void write(const void* data, std::size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
  std::string text;
};

// A place for the typed value of a leaf, or for those of the leaves of a composite.
struct Place {
  using Value = std::variant<std::string, float, int, bool>;

  std::string name;
  Value value;
  const std::vector<std::string>* choices = nullptr;  // the value is an index of these
  std::vector<Place> below;
  bool composite = false;
};

// Makes the places for a tree.
class PlaceMaker : public ConfigurableConstVisitor {
 public:
  using ConfigurableConstVisitor::visit;
  void begin_composite(const ConfigurableComposite& item) override {
    Add({.name = item.name(), .value = {}, .below = {}, .composite = true});
    open.push_back(&Level().back());
  }
  void end_composite(const ConfigurableComposite&) override { open.pop_back(); }
  void visit(const Configurable& item) override { AddLeaf(item, std::string()); }
  void visit(const ConfigurableString& item) override { AddLeaf(item, std::string()); }
  void visit(const ConfigurableFloat& item) override { AddLeaf(item, 0.0F); }
  void visit(const ConfigurableInteger& item) override { AddLeaf(item, 0); }
  void visit(const ConfigurableBool& item) override { AddLeaf(item, false); }
  void visit(const ConfigurableMultipleChoice& item) override {
    AddLeaf(item, 0);
    Level().back().choices = &item.choices();
  }

  std::vector<Place> top;

 private:
  std::vector<Place>& Level() { return open.empty() ? top : open.back()->below; }
  void Add(Place place) {
    // What is open must not move.
    Level().reserve(64);
    Level().push_back(std::move(place));
  }
  void AddLeaf(const Configurable& item, Place::Value value) {
    Add({.name = item.name(), .value = std::move(value), .below = {}});
  }

  std::vector<Place*> open;
};

// Fills the places from a document.
void Fill(std::vector<Place>& places, const pugi::xml_node& parent) {
  for (Place& place : places) {
    const pugi::xml_node node = parent.child(place.name.c_str());
    if (place.composite) {
      Fill(place.below, node);
      continue;
    }
    const pugi::xml_text text = node.text();
    if (place.choices != nullptr)
      place.value =
          static_cast<int>(std::find(place.choices->begin(), place.choices->end(), text.get()) -
                           place.choices->begin());
    else if (std::holds_alternative<float>(place.value))
      place.value = text.as_float();
    else if (std::holds_alternative<int>(place.value))
      place.value = text.as_int();
    else if (std::holds_alternative<bool>(place.value))
      place.value = text.as_bool();
    else
      std::get<std::string>(place.value) = text.get();
  }
}

// Both sides, with what they work on.
class Subjects {
 public:
  Subjects() {
    std::ostringstream printed;
    doc.print_tree(printed);
    settings_file = printed.str();
    parsed.load_buffer(settings_file.data(), settings_file.size());
    set_compact(answer, true);
    PlaceMaker maker;
    doc.accept_const(maker);
    places = std::move(maker.top);
  }

  std::size_t Query() {
    in.clear();
    in.str("&query;\n");
    return Answer([this] { doc.read_document(in, answer); });
  }
  std::size_t PugiPrint() {
    writer.text.clear();
    parsed.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
    return writer.text.size();
  }

  std::size_t ReadFile() {
    in.clear();
    in.str(settings_file);
    return Answer([this] { doc.read_document(in, answer); });
  }
  std::size_t PugiRead() {
    pugi::xml_document document;
    document.load_buffer(settings_file.data(), settings_file.size());
    Fill(places, document);
    return 0;
  }

  std::size_t Write() {
    in.clear();
    in.str(kWrite);
    return Answer([this] {
      doc.request(in, answer);
      doc.print_ack(answer);
    });
  }
  std::size_t PugiWrite() {
    pugi::xml_document write;
    write.load_buffer(kWrite.data(), kWrite.size());
    const auto path = [](pugi::xml_document& document) {
      return document.child("nemra")
          .child("tavo")
          .child("cfg")
          .child("lightsource")
          .child("Q_setpoint");
    };
    path(parsed).text().set(path(write).text().as_float());
    writer.text.clear();
    writer.text.append("<nemra><tavo>");
    parsed.child("nemra").child("tavo").child("ack").print(writer, "", pugi::format_raw);
    writer.text.append("</tavo></nemra>");
    return writer.text.size();
  }

 private:
  std::size_t Answer(const std::function<void()>& act) {
    answer.str("");
    act();
    return static_cast<std::size_t>(answer.tellp());
  }

  DocTavo doc;
  std::string settings_file;
  std::istringstream in;
  std::ostringstream answer;
  pugi::xml_document parsed;
  StringWriter writer;
  std::vector<Place> places;
};

const std::map<std::string, std::size_t (Subjects::*)()> kCases = {
    {"a", &Subjects::Query},    {"a-pugixml", &Subjects::PugiPrint},
    {"b", &Subjects::ReadFile}, {"b-pugixml", &Subjects::PugiRead},
    {"c", &Subjects::Write},    {"c-pugixml", &Subjects::PugiWrite},
};

void Run(const std::string& name, int turns) {
  Subjects subjects;
  for (int i = 0; i < turns; ++i) (subjects.*kCases.at(name))();
}

// Instructions of this program when it runs `name` for `turns` turns.
long Instructions(const std::string& program, const std::string& name, int turns) {
  const TemporaryDirectory root;
  const std::string log = root.Path() + "/callgrind";
  std::string command;
  for (const std::string& word : CallgrindWords(log)) command += word + " ";
  command += "'" + program + "' --run " + name + " " + std::to_string(turns);
  if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
  return CountIn(log);
}

double InstructionsPerTurn(const std::string& program, const std::string& name) {
  return PerTurn([&](int turns) { return Instructions(program, name, turns); }, 20, 120);
}

struct Comparison {
  const char* name;
  const char* meaning;
  double most;  // ratio to pugixml that is to suffice; 0 if nothing was set
};
constexpr Comparison kComparisons[] = {
    {"a", "answering &query; on the root, or printing it", 0},
    {"b", "reading a whole settings file", 1.5},
    {"c", "one small write with its answer", 0},
};

}  // namespace

int main(int argc, char** argv) {
  // As this program runs itself.
  if (argc == 4 && argv[1] == std::string("--run")) {
    Run(argv[2], std::stoi(argv[3]));
    return 0;
  }
  try {
    Selection selection(argc, argv);
    for (const Comparison& one : kComparisons) {
      const std::string name = std::string("tree-") + one.name;
      if (!selection.Wants(name)) continue;
      Tell({.name = name,
            .meaning = one.meaning,
            .unit = "instructions",
            .ours = InstructionsPerTurn(argv[0], one.name),
            .other = "pugixml",
            .theirs = InstructionsPerTurn(argv[0], one.name + std::string("-pugixml")),
            .most = one.most});
    }
    selection.CheckNames();
  } catch (const std::exception& error) {
    std::cerr << "settings_tree: " << error.what() << "\n";
    return 1;
  }
}
