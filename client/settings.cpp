#include "client/settings.h"

#include <algorithm>
#include <pugixml.hpp>

namespace {

// No head's tree is nearly as deep.
constexpr int kDeepest = 100;

Element ElementOf(const pugi::xml_node& node, int depth = 0) {
  if (depth > kDeepest) throw ClientError("a document is nested too deeply");
  Element element;
  element.name = node.name();
  element.text = node.text().get();
  for (const pugi::xml_attribute& attribute : node.attributes())
    element.attributes.emplace_back(attribute.name(), attribute.value());
  for (const pugi::xml_node& child : node.children())
    if (child.type() == pugi::node_element) element.children.push_back(ElementOf(child, depth + 1));
  return element;
}

void FindRefusals(const Element& element, std::vector<Refusal>& refusals) {
  if (element.name == "Error") {
    Refusal refusal{"", element.text};
    for (const auto& [name, value] : element.attributes)
      if (name == "Param") refusal.item = value;
    // A message may end with a line feed of its own.
    while (refusal.message.ends_with('\n')) refusal.message.pop_back();
    refusals.push_back(std::move(refusal));
  }
  for (const Element& child : element.children) FindRefusals(child, refusals);
}

}  // namespace

const Element* Element::Find(std::string_view path) const {
  const std::size_t slash = path.find('/');
  const auto child =
      std::find_if(children.begin(), children.end(),
                   [tag = path.substr(0, slash)](const Element& each) { return each.name == tag; });
  if (child == children.end()) return nullptr;
  return slash == std::string_view::npos ? &*child : child->Find(path.substr(slash + 1));
}

const Element& Element::At(std::string_view path) const {
  if (const Element* found = Find(path)) return *found;
  throw ClientError("there is no " + Quoted(path) + " in the element " + Quoted(name));
}

std::vector<Element> Answer::Elements() const {
  pugi::xml_document document;
  const pugi::xml_parse_result result =
      document.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_fragment);
  if (!result) {
    std::string reason = result.description();
    throw ClientError("the head's answer is no XML (" + reason + "): " + Quoted(text));
  }
  return ElementOf(document).children;
}

std::vector<Refusal> Answer::Refusals() const {
  std::vector<Refusal> refusals;
  const std::vector<Element> elements = Elements();
  for (const Element& element : elements) FindRefusals(element, refusals);
  if (failed && !elements.empty()) refusals.push_back({"", elements.back().At("tavo/error").text});
  return refusals;
}

void Answer::Check() const {
  std::string all;
  for (const Refusal& refusal : Refusals()) {
    if (!all.empty()) all += "; ";
    if (!refusal.item.empty()) all += refusal.item + ": ";
    all += refusal.message;
  }
  if (!all.empty()) throw Refused("the head refused: " + all);
}

Element ReadSettings(const std::string& document) {
  const std::vector<Element> elements = Answer{document}.Elements();
  if (elements.size() != 1 || elements.front().name != "nemra")
    throw ClientError("this is no document of settings: " + Quoted(document));
  return elements.front();
}

std::string NestedElements(std::string_view path, std::string_view content) {
  std::string before;
  std::string after;
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    const std::string tag(path.substr(0, slash));
    before += "<" + tag + ">";
    after.insert(0, "</" + tag + ">");
    path = slash == std::string_view::npos ? "" : path.substr(slash + 1);
  }
  return before.append(content) + after;
}

std::string SettingsDocument(std::string_view path, std::string_view content) {
  return "<nemra><tavo>" + NestedElements(path, content) + "</tavo></nemra>";
}

std::string EscapedValue(std::string_view value) {
  std::string escaped;
  for (const char letter : value) {
    switch (letter) {
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default:
        escaped += letter;
    }
  }
  return escaped;
}
