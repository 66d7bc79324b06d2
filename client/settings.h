#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/deadline.h"

// Documents for the settings of a head, and what its answers hold.

// An element of an answer.
struct Element {
  std::string name;
  std::string text;  // its own, with the entities resolved; empty where it has children alone
  std::vector<std::pair<std::string, std::string>> attributes;
  std::vector<Element> children;

  // The first element at a path from this one, such as "cfg/lightsource/control"; null if there is
  // none.
  const Element* Find(std::string_view path) const;
  // The same, but throws ClientError if there is none.
  const Element& At(std::string_view path) const;
};

// What a head has refused in a request.
struct Refusal {
  std::string item;  // the setting; empty when the request failed as a whole
  std::string message;
};

// The answer to a request, without the acknowledgement that ends it.
struct Answer {
  std::string text;     // values and documents, one after another
  bool failed = false;  // the request ended early; the last document says why

  // The elements in it, one after another. What `&query;` asked for is an element `nemra`. Throws
  // ClientError for a text that is not XML.
  std::vector<Element> Elements() const;
  // What was refused, in order.
  std::vector<Refusal> Refusals() const;
  // Throws Refused with all of it if anything was refused.
  void Check() const;
};

// Reads one document, such as the head's whole tree on the bus or in a file: the element `nemra`.
// Throws ClientError.
Element ReadSettings(const std::string& document);

// The tags of a path, nested, and `content` within them.
std::string NestedElements(std::string_view path, std::string_view content);
// A document that holds `content` at a path below the head's own element, such as
// "cfg/lightsource/Q_setpoint"; an empty path is that element.
std::string SettingsDocument(std::string_view path, std::string_view content);
// A value as it is written in a document.
std::string EscapedValue(std::string_view value);
