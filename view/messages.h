#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "client/console.h"
#include "client/setting.h"
#include "view/event_store.h"

// What is said to browsers, as JSON. docs/view.md lists it all.

// Without blanks; numbers that are none become null.
std::string JsonText(const Json::Value& value);

Json::Value JsonOf(const HeadIdentity& identity, const Columns& columns);
Json::Value JsonOf(const std::vector<Setting>& settings);
Json::Value JsonOfValues(const std::vector<Setting>& changes);
Json::Value JsonOf(const EventStore::Kept& kept);
Json::Value JsonOfCurve(const EventStore::Kept& kept);
Json::Value JsonOf(const std::vector<Assignment>& outcome);
Json::Value JsonOf(const DataRow& row);

// What a browser asks for.
struct Request {
  int id = 0;                           // comes back in the answer
  std::vector<Assignment> assignments;  // to be set together
  std::optional<std::string> token;     // that allows it to
  std::optional<int> curve;             // the key of an event whose curve it wants
  std::optional<int> record;            // the same for the whole record

  // Throws ClientError for what is no request, or asks for too much at once.
  static Request Parse(const std::string& text);
};
