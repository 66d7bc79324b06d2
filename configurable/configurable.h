#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "configurable/configurable_visitor.h"

class Configurable;
class ConfigurableAttributes;
class KeptDocument;
class XMLParser;
class XMLWriter;
struct ValueStreams;

// What a listener is told about; valid only during the call. Whoever wants to write to the node has
// its own way to it.
class ConfigurableEvent {
 public:
  explicit ConfigurableEvent(const Configurable& source) : source(&source) {}
  virtual ~ConfigurableEvent() = default;
  ConfigurableEvent(const ConfigurableEvent&) = delete;
  ConfigurableEvent& operator=(const ConfigurableEvent&) = delete;

  const Configurable* source;
};

// Hears what happens to one node. Calls come synchronously, in the middle of the request that
// caused them, and may write to other nodes.
class ConfigurableListener {
 public:
  virtual ~ConfigurableListener() = default;
  virtual void item_changed(const ConfigurableEvent& /*event*/) {}
  virtual void item_read_begin(const ConfigurableEvent& /*event*/) {}
  virtual void item_read_end(const ConfigurableEvent& /*event*/) {}
  // Texts are the listener's own, to keep.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): the default keeps none
  virtual void item_text(const ConfigurableEvent& /*event*/, std::string /*text*/) {}
  // `stream` is where the answer goes.
  virtual void item_text_stream(const ConfigurableEvent& event, std::string text,
                                std::ostream& /*stream*/) {
    item_text(event, std::move(text));
  }
  virtual void item_write_begin(const ConfigurableEvent& /*event*/) {}
  virtual void item_write_end(const ConfigurableEvent& /*event*/) {}
};

// Layout of what is written on a stream: compact, without white space of its own, for clients and
// the bus; indented, as a new stream is, for files.
void set_compact(std::ostream& stream, bool compact);
bool is_compact(std::ostream& stream);

// A node of the settings tree: a named, typed item that reads and writes itself in the XML language
// of the system. One document can set some items and query others; the answers follow one
// another in the order of the document, and an item that fails leaves an <Error> element at its
// place while the rest goes on.
//
// Nodes know their parent and do not own it. A change climbs to the root: each node on the way
// counts it, calls its hook and tells its listener. A value is live the moment that it is assigned.
class Configurable {
 public:
  enum Flag : std::uint32_t {
    // The node, or something below it, was changed since the last set_changed(false).
    Changed = 1,
    // The node takes part in reading and queries; for an attribute: it is on the tag.
    Active = 2,
    // The attributes of the element that is being read were cleared already.
    AttributesTouched = 4,
    // Value and doctype are written without escapes.
    RawText = 8,
    // Errors throw Configurable::Error instead of appearing in the answer.
    ThrowErrors = 16,
    // Assignments from a document are silently dropped.
    ReadOnly = 32,
    // Assignments from a document report "Configuration is locked".
    Locked = 64,
  };

  class Error : public std::runtime_error {
   public:
    Error(const std::string& item, std::string_view message);
  };

  explicit Configurable(std::string name);
  virtual ~Configurable();
  Configurable(const Configurable&) = delete;
  Configurable& operator=(const Configurable&) = delete;

  // Reads the document on `in`, whose root must be this node, and writes the answer to `out`.
  // Failure is the failbit of `in`, and its text is in `out`. What follows the root's end tag stays
  // in the stream.
  virtual std::istream& read_document(std::istream& in, std::ostream& out);
  // The same for a document that is read again and again. False if the reading failed.
  bool read_document(KeptDocument& document, std::ostream& out);

  // Restores the default.
  virtual void reset() {}
  // Takes a value from a text; a bad one is reported on `err` and changes nothing.
  virtual std::istream& read_value(std::istream& in, std::ostream& /*err*/) { return in; }
  virtual std::ostream& print_value(std::ostream& out) const { return out; }
  // The same for the description of the type, without its braces.
  virtual std::istream& read_doctype(std::istream& in, std::ostream& /*err*/) { return in; }
  virtual std::ostream& print_doctype(std::ostream& out) const { return out; }

  virtual void accept(ConfigurableVisitor& visitor);
  virtual void accept_attributes(ConfigurableVisitor& visitor);
  // As accept, for a visitor that changes nothing.
  void accept_const(ConfigurableConstVisitor& visitor) const;

  // Hooks for derived classes, called before the listener's calls of the same kind.
  virtual void on_changed() {}
  virtual void on_read_begin(XMLParser& /*parser*/, XMLWriter& /*writer*/) {}
  virtual void on_read_end() {}
  // NOLINTNEXTLINE(performance-unnecessary-value-param): it is the hook's own, to keep
  virtual void on_read_text(std::string /*text*/, std::ostream& /*out*/) {}
  virtual void on_write_begin() const {}
  virtual void on_write_end() const {}

  // True marks this node and climbs; false clears the mark here and in everything below.
  virtual void set_changed(bool changed);
  // These two descend.
  virtual void set_locked(bool locked);
  virtual void set_throw_errors(bool throw_errors);

  // Steps of reading, with `writer` for the answer. False ends the element that is read. Texts are
  // valid until the parser moves. For read_element the start tag is consumed already.
  virtual bool read_element(XMLParser& parser, XMLWriter& writer);
  virtual bool read_child_element(std::string_view tag, XMLParser& parser, XMLWriter& writer);
  virtual bool read_attribute(std::string_view attribute, XMLWriter& writer);
  virtual bool read_attribute_value(std::string_view attribute, std::string_view value,
                                    XMLWriter& writer);
  virtual void clear_attributes();
  // For an attribute: whether it is on the tag. A change of that is marked.
  virtual void set_enabled(bool enabled);
  virtual bool set_from_string(std::string_view text, XMLWriter& writer);

  // Steps of writing. "Context" is the node within the tags of its ancestors.
  virtual void write_value(XMLWriter& writer) const;
  virtual bool set_doctype_from_string(std::string_view text, XMLWriter& writer);
  virtual void write_doctype(XMLWriter& writer) const;
  virtual void write_changes(XMLWriter& writer) const;
  virtual void write_context(XMLWriter& writer) const;
  virtual void write_changes_context(XMLWriter& writer) const;
  virtual void write_doctype_context(XMLWriter& writer) const;

  const std::string& name() const { return _name; }
  // What the node is for, in a few words for people; empty for one without a description. Clients
  // never see it.
  const char* meaning() const { return _meaning; }
  void set_meaning(const char* meaning) { _meaning = meaning; }
  Configurable* parent() const { return _parent; }
  bool has_changed() const { return has_flag(Changed); }
  // Whether this or something below it may be marked; if not, there is no mark to clear.
  bool may_be_marked() const { return _may_be_marked; }
  bool has_flag(Flag flag) const { return (_flags & flag) != 0; }
  void set_flag(Flag flag, bool on);
  void copy_flags(const Configurable& other);
  std::uint32_t change_count() const { return _change_count; }
  // Null until the first attribute is added.
  ConfigurableAttributes* attributes() const { return _attributes.get(); }
  // Not owned; null removes it. Returns the previous one.
  ConfigurableListener* set_listener(ConfigurableListener* listener);

  // `attribute` is not owned.
  void add_attribute(Configurable* attribute);
  void mark_changed();

  void write_error(std::string_view message, XMLWriter& writer) const;
  void write_start(XMLWriter& writer) const;
  void write_end(XMLWriter& writer) const;
  void write_element(XMLWriter& writer) const;
  void write_changes_element(XMLWriter& writer) const;
  void write_doctype_element(XMLWriter& writer) const;
  // Acts on the text of an element, or of the document itself. False ends the element.
  bool process_text(std::string_view text, XMLWriter& writer, bool document_level);

  // The bare value and the bare type as texts.
  std::string value_text() const;
  std::string doctype_text() const;

  // The steps of writing on a stream, in its layout. The tree as a settings file holds it:
  std::ostream& print_tree(std::ostream& out) const;
  // This node without its ancestors.
  std::ostream& print_element(std::ostream& out) const;
  // What has changed, in context; nothing if nothing has.
  std::ostream& print_changes(std::ostream& out) const;
  std::ostream& print_doctype_tree(std::ostream& out) const;
  // The request that asks for this node.
  std::ostream& print_query(std::ostream& out) const;

 protected:
  // For those that take in a node: composites and attribute sets.
  void adopt(Configurable& child);
  void set_parent(Configurable* parent) { _parent = parent; }

 private:
  using Writer = void (Configurable::*)(XMLWriter&) const;
  enum class Part { kValue, kDoctype };

  // Those that the root of this tree keeps.
  ValueStreams& streams() const;
  bool read_root(XMLParser& parser, XMLWriter& writer);
  bool assign(std::string_view text, Part part, XMLWriter& writer);
  std::ostream& print_with(Writer write, std::ostream& out) const;
  void write_in_context(Writer attributes_part, Writer own_part, XMLWriter& writer) const;
  void write_path_start(XMLWriter& writer) const;
  void write_attributes(Writer part, XMLWriter& writer) const;
  void write_query(XMLWriter& writer) const;
  void write_query_start(XMLWriter& writer) const;

  // For whoever marks this without climbing: the nodes above learn of it too.
  void expect_marks();

  std::string _name;
  bool _name_is_tag;  // all of it can be in a tag
  bool _may_be_marked = true;
  const char* _meaning = "";
  Configurable* _parent = nullptr;
  std::uint32_t _flags = Changed | Active;
  std::uint32_t _change_count = 0;
  std::unique_ptr<ConfigurableAttributes> _attributes;
  ConfigurableListener* _listener = nullptr;
  mutable std::unique_ptr<ValueStreams> _streams;  // of a root
};
