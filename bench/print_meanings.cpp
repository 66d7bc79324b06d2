// Prints what each node of a head's tree is for, by its path, as JSON: for the page of lumet-view,
// since a head tells types, ranges and units, and no meanings.

#include <json/json.h>

#include <iostream>

#include "configurable/configurable_composite.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

void Collect(ConfigurableComposite& branch, const std::string& path, Json::Value& meanings) {
  for (Configurable* const child : branch.children()) {
    const std::string place = path.empty() ? child->name() : path + "/" + child->name();
    if (child->meaning() != nullptr) meanings[place] = child->meaning();
    if (auto* const below = dynamic_cast<ConfigurableComposite*>(child))
      Collect(*below, place, meanings);
  }
}

}  // namespace

int main() {
  DocTavo doc;
  Json::Value meanings(Json::objectValue);
  Collect(doc.Conf(), "", meanings);
  Json::StreamWriterBuilder writer;
  writer["indentation"] = " ";
  writer["emitUTF8"] = true;
  std::cout << Json::writeString(writer, meanings) << "\n";
}
