#include "configurable/configurable.h"

#include <algorithm>
#include <utility>

#include "configurable/configurable_attributes.h"
#include "configurable/kept_document.h"
#include "configurable/text_stream.h"
#include "configurable/xml_parser.h"
#include "configurable/xml_query_string_parser.h"
#include "configurable/xml_text.h"
#include "configurable/xml_writer.h"

namespace {

// The formatting word that a stream has for the tree; bit 0 means compact.
int LayoutWord() {
  static const int index = std::ios_base::xalloc();
  return index;
}

// What one document may answer at most. A few bytes of query can ask for the whole tree, so an
// answer could grow to a thousand times its request.
constexpr std::size_t kAnswerLimit = std::size_t{16} << 20;

// Puts the answer to `query` at `item` into the answer of the document.
void Answer(XMLQueryStringParser::Token query, const Configurable& item, XMLWriter& writer,
            bool document_level) {
  switch (query) {
    case XMLQueryStringParser::QUERY:
      return document_level ? item.write_element(writer) : item.write_value(writer);
    case XMLQueryStringParser::QUERY_CONTEXT:
      return item.write_context(writer);
    case XMLQueryStringParser::QUERY_CHANGES:
      if (!document_level) return item.write_changes(writer);
      if (item.has_changed()) item.write_changes_element(writer);
      return;
    case XMLQueryStringParser::QUERY_CHANGES_CONTEXT:
      return item.write_changes_context(writer);
    case XMLQueryStringParser::QUERY_DOCTYPE:
      return document_level ? item.write_doctype_element(writer) : item.write_doctype(writer);
    case XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT:
      return item.write_doctype_context(writer);
    default:
      return;
  }
}

// Lets a visitor that changes nothing walk the tree as any other does.
class ConstVisit final : public ConfigurableVisitor {
 public:
  explicit ConstVisit(ConfigurableConstVisitor& visitor) : visitor(visitor) {}
  bool begin_attributes(ConfigurableAttributes& set) override {
    return visitor.begin_attributes(set);
  }
  void end_attributes(ConfigurableAttributes& set) override { visitor.end_attributes(set); }
  void begin_composite(ConfigurableComposite& composite) override {
    visitor.begin_composite(composite);
  }
  void end_composite(ConfigurableComposite& composite) override {
    visitor.end_composite(composite);
  }
  void visit(Configurable& item) override { visitor.visit(item); }
  void visit(ConfigurableMultipleChoice& item) override { visitor.visit(item); }
  void visit(ConfigurableFloat& item) override { visitor.visit(item); }
  void visit(ConfigurableDouble& item) override { visitor.visit(item); }
  void visit(ConfigurableInteger& item) override { visitor.visit(item); }
  void visit(ConfigurableBool& item) override { visitor.visit(item); }
  void visit(ConfigurableString& item) override { visitor.visit(item); }
  void visit(ConfigurableTimestamp& item) override { visitor.visit(item); }
  void visit(ConfigurableTime& item) override { visitor.visit(item); }
  void visit(ConfigurableTime_HourMinutes& item) override { visitor.visit(item); }
  void visit(ConfigurableDate& item) override { visitor.visit(item); }
  void visit(ConfigurableDate_YearMonth& item) override { visitor.visit(item); }

 private:
  ConfigurableConstVisitor& visitor;
};

}  // namespace

void set_compact(std::ostream& stream, bool compact) {
  long& word = stream.iword(LayoutWord());
  word = compact ? word | 1L : word & ~1L;
}

bool is_compact(std::ostream& stream) { return (stream.iword(LayoutWord()) & 1L) != 0; }

Configurable::Error::Error(const std::string& item, std::string_view message)
    : std::runtime_error(("XML error in item \"" + item + "\": ").append(message)) {}

Configurable::Configurable(std::string name)
    : _name(std::move(name)),
      _name_is_tag(!_name.empty() && xml_text::NameIn(_name).size() == _name.size()) {}

Configurable::~Configurable() = default;

void Configurable::set_flag(Flag flag, bool on) {
  _flags = on ? _flags | flag : _flags & ~std::uint32_t{flag};
  if (on && flag == Changed) expect_marks();
}

void Configurable::copy_flags(const Configurable& other) {
  _flags = other._flags;
  if (has_changed()) expect_marks();
}

void Configurable::expect_marks() {
  for (Configurable* node = this; node != nullptr && !node->_may_be_marked; node = node->_parent)
    node->_may_be_marked = true;
}

ConfigurableListener* Configurable::set_listener(ConfigurableListener* listener) {
  return std::exchange(_listener, listener);
}

void Configurable::adopt(Configurable& child) {
  child._parent = this;
  child.set_throw_errors(has_flag(ThrowErrors));
  if (child._may_be_marked) expect_marks();
}

void Configurable::add_attribute(Configurable* attribute) {
  if (!_attributes) _attributes = std::make_unique<ConfigurableAttributes>(*this);
  _attributes->add(attribute);
}

void Configurable::accept(ConfigurableVisitor& visitor) { visitor.visit(*this); }

void Configurable::accept_attributes(ConfigurableVisitor& visitor) {
  if (!_attributes) return;
  if (visitor.begin_attributes(*_attributes)) {
    for (Configurable* attribute : _attributes->attribute_list()) {
      attribute->accept(visitor);
      attribute->accept_attributes(visitor);
    }
  }
  visitor.end_attributes(*_attributes);
}

void Configurable::accept_const(ConfigurableConstVisitor& visitor) const {
  ConstVisit visit(visitor);
  // The walk itself changes nothing, and the visitor sees const nodes alone.
  const_cast<Configurable*>(this)->accept(visit);
}

ValueStreams& Configurable::streams() const {
  const Configurable* root = this;
  while (root->_parent != nullptr) root = root->_parent;
  if (!root->_streams) root->_streams = std::make_unique<ValueStreams>();
  return *root->_streams;
}

// Changes.

void Configurable::mark_changed() {
  _flags |= Changed;
  // This comes first, whatever a listener on the way throws.
  expect_marks();
  ++_change_count;
  on_changed();
  if (_listener != nullptr) _listener->item_changed(ConfigurableEvent(*this));
  if (_parent != nullptr) _parent->set_changed(true);
}

void Configurable::set_changed(bool changed) {
  if (changed) {
    mark_changed();
    return;
  }
  _flags &= ~std::uint32_t{Changed};
  _may_be_marked = false;
  if (_attributes && _attributes->may_be_marked()) _attributes->set_changed(false);
}

void Configurable::set_locked(bool locked) {
  set_flag(Locked, locked);
  if (_attributes) _attributes->set_locked(locked);
}

void Configurable::set_throw_errors(bool throw_errors) {
  set_flag(ThrowErrors, throw_errors);
  if (_attributes) _attributes->set_throw_errors(throw_errors);
}

// Reading.

std::istream& Configurable::read_document(std::istream& in, std::ostream& out) {
  XMLParser parser(in);
  XMLWriter writer(out, !is_compact(out), &streams());
  if (!read_root(parser, writer)) in.setstate(std::ios_base::failbit);
  return in;
}

bool Configurable::read_document(KeptDocument& document, std::ostream& out) {
  XMLWriter writer(out, !is_compact(out), &streams());
  return read_root(document.Rewound(), writer);
}

bool Configurable::read_root(XMLParser& parser, XMLWriter& writer) {
  while (true) {
    switch (parser.NextToken()) {
      case XMLParser::END_DOC:
        return true;
      case XMLParser::ERROR:
        return false;
      case XMLParser::STRING:
        if (!process_text(parser.GetTokenString(), writer, true)) return false;
        break;
      case XMLParser::START_ELEMENT:
        if (parser.GetTokenString() == _name) return read_element(parser, writer);
        write_error(std::string("Invalid start element: ").append(parser.GetTokenString()), writer);
        return false;
      default:
        break;
    }
  }
}

bool Configurable::read_element(XMLParser& parser, XMLWriter& writer) {
  set_flag(AttributesTouched, false);
  on_read_begin(parser, writer);
  if (_listener != nullptr) _listener->item_read_begin(ConfigurableEvent(*this));
  while (true) {
    bool goes_on = true;
    switch (parser.NextToken()) {
      case XMLParser::ERROR:
        return false;
      case XMLParser::END_DOC:
        return true;
      case XMLParser::START_ELEMENT:
        goes_on = read_child_element(parser.GetTokenString(), parser, writer);
        break;
      case XMLParser::ATTRIBUTE:
        goes_on = read_attribute(parser.GetTokenString(), writer);
        break;
      case XMLParser::ATTRIBUTE_VALUE_PAIR:
        goes_on = read_attribute_value(parser.GetTokenString(), parser.GetTokenValue(), writer);
        break;
      case XMLParser::STRING: {
        std::string_view text = parser.GetTokenString();
        on_read_text(std::string(text), writer.Stream());
        if (_listener != nullptr)
          _listener->item_text_stream(ConfigurableEvent(*this), std::string(text), writer.Stream());
        goes_on = process_text(text, writer, false);
        break;
      }
      case XMLParser::END_ELEMENT:
        if (parser.GetTokenString() != _name) {
          write_error(std::string("Invalid End Element: ").append(parser.GetTokenString()), writer);
          return false;
        }
        on_read_end();
        if (_listener != nullptr) _listener->item_read_end(ConfigurableEvent(*this));
        return true;
      default:
        break;
    }
    if (!goes_on) return false;
  }
}

bool Configurable::read_child_element(std::string_view tag, XMLParser&, XMLWriter& writer) {
  write_error(std::string("Invalid configuration tag: ").append(tag), writer);
  return false;
}

bool Configurable::read_attribute(std::string_view attribute, XMLWriter& writer) {
  if (_attributes) return _attributes->read_attribute(attribute, writer);
  write_error("This item has no attributes", writer);
  return false;
}

bool Configurable::read_attribute_value(std::string_view attribute, std::string_view value,
                                        XMLWriter& writer) {
  if (_attributes) return _attributes->read_attribute_value(attribute, value, writer);
  write_error("This item has no attributes", writer);
  return false;
}

void Configurable::clear_attributes() {
  set_flag(AttributesTouched, true);
  if (_attributes) _attributes->clear_attributes();
}

void Configurable::set_enabled(bool enabled) {
  if (has_flag(Active) == enabled) return;
  set_flag(Active, enabled);
  mark_changed();
}

bool Configurable::process_text(std::string_view text, XMLWriter& writer, bool document_level) {
  // Nearly all texts are a value alone, or empty.
  const auto is_mark = [](char byte) { return byte == '&'; };
  if (!text.starts_with('{') && std::none_of(text.begin(), text.end(), is_mark))
    return text.empty() || document_level || set_from_string(text, writer);
  XMLQueryStringParser parser(text);
  while (true) {
    const XMLQueryStringParser::Token token = parser.NextToken();
    switch (token) {
      case XMLQueryStringParser::END_STRING:
        return true;
      case XMLQueryStringParser::START_STRING:
        break;
      case XMLQueryStringParser::STRING:
        if (!document_level && !set_from_string(parser.GetTokenString(), writer)) return false;
        break;
      case XMLQueryStringParser::DOCTYPE:
        if (!document_level && !set_doctype_from_string(parser.GetTokenString(), writer))
          return false;
        break;
      case XMLQueryStringParser::ERROR:
        write_error(std::string("Invalid query: ").append(parser.GetTokenString()), writer);
        break;
      default:
        if (writer.Length() > kAnswerLimit) {
          write_error("Answer too long", writer);
          return false;
        }
        Answer(token, *this, writer, document_level);
    }
  }
}

bool Configurable::set_from_string(std::string_view text, XMLWriter& writer) {
  return assign(text, Part::kValue, writer);
}

bool Configurable::set_doctype_from_string(std::string_view text, XMLWriter& writer) {
  return assign(text, Part::kDoctype, writer);
}

bool Configurable::assign(std::string_view text, Part part, XMLWriter& writer) {
  // Protocol: the refusal is reported, and the value is taken all the same.
  if (has_flag(Locked)) write_error("Configuration is locked", writer);
  if (has_flag(ReadOnly)) return true;
  if (part == Part::kValue && !has_flag(AttributesTouched)) clear_attributes();
  const Borrowed in(writer.Values().inputs, text);
  const Borrowed err(writer.Values().outputs);
  if (part == Part::kValue)
    read_value(*in, *err);
  else
    read_doctype(*in, *err);
  if (!err->Text().empty()) write_error(err->Text(), writer);
  return !in->fail();
}

void Configurable::write_error(std::string_view message, XMLWriter& writer) const {
  if (has_flag(ThrowErrors)) throw Error(_name, message);
  writer.error(_name, message);
}
