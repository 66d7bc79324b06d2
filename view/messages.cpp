#include "view/messages.h"

#include "client/event_results.h"
#include "client/json_text.h"

namespace {

constexpr Json::ArrayIndex kMostAssignments = 50;

Json::Value Texts(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) array.append(text);
  return array;
}

template <class Number>
Json::Value Numbers(const std::vector<Number>& numbers) {
  Json::Value array(Json::arrayValue);
  for (const Number number : numbers) array.append(number);
  return array;
}

}  // namespace

std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  writer["emitUTF8"] = true;
  writer["precision"] = 16;
  return Json::writeString(writer, value);
}

Json::Value JsonOf(const HeadIdentity& identity, const Columns& columns) {
  Json::Value head;
  head["model"] = identity.model;
  head["version"] = identity.version;
  head["name"] = identity.name;
  head["serial_number"] = identity.serial_number;
  head["columns"] = Texts(columns.names);
  head["units"] = Texts(columns.units);
  for (int code = 2; code < 16; ++code) head["phases"][std::to_string(code)] = PhaseName(code);
  return head;
}

Json::Value JsonOf(const std::vector<Setting>& settings) {
  Json::Value array(Json::arrayValue);
  for (const Setting& setting : settings) {
    Json::Value each;
    each["path"] = setting.path;
    each["value"] = setting.value;
    each["kind"] = setting.KindName();
    each["default"] = setting.default_value;
    each["low"] = setting.low;
    each["high"] = setting.high;
    each["unit"] = setting.unit;
    each["choices"] = Texts(setting.choices);
    array.append(std::move(each));
  }
  return array;
}

Json::Value JsonOfValues(const std::vector<Setting>& changes) {
  Json::Value values(Json::objectValue);
  for (const Setting& setting : changes) values[setting.path] = setting.value;
  return values;
}

Json::Value JsonOf(const EventStore::Kept& kept) {
  Json::Value event;
  event["key"] = kept.key;
  for (const auto& [name, value] : kept.event.values) {
    if (const auto* number = std::get_if<double>(&value))
      event["values"][name] = *number;
    else
      event["values"][name] = std::get<std::string>(value);
  }
  event["samples"] = static_cast<Json::UInt64>(kept.samples);
  event["results"] = Json::Value(Json::arrayValue);
  for (const Result& result : Results(kept.event.type)) {
    const auto value = kept.event.Number(result.name);
    if (!value) continue;
    Json::Value each;
    each["name"] = result.name;
    each["value"] = IsMeasured(*value) ? Json::Value(*value) : Json::Value();
    each["unit"] = result.unit;
    each["meaning"] = result.meaning;
    event["results"].append(std::move(each));
  }
  if (kept.before) {
    event["before"]["F"] = kept.before->F;
    event["before"]["PFD"] = kept.before->PFD;
    event["before"]["rows"] = static_cast<Json::UInt64>(kept.before->rows);
  }
  return event;
}

Json::Value JsonOfCurve(const EventStore::Kept& kept) {
  const EventRecord::Curve& curve = kept.event.curve;
  Json::Value json;
  json["key"] = kept.key;
  json["SECS"] = Numbers(curve.seconds);
  json["LUMET"] = Numbers(curve.fluorescence);
  json["PFD"] = Numbers(curve.pfd);
  json["CODE"] = Numbers(curve.code);
  return json;
}

Json::Value JsonOf(const std::vector<Assignment>& outcome) {
  Json::Value array(Json::arrayValue);
  for (const Assignment& assignment : outcome) {
    Json::Value each;
    each["path"] = assignment.path;
    each["asked"] = assignment.asked;
    each["value"] = assignment.setting.value;
    each["refusal"] = assignment.refusal;
    each["done"] = assignment.IsDone();
    array.append(std::move(each));
  }
  return array;
}

Json::Value JsonOf(const DataRow& row) {
  Json::Value values(Json::objectValue);
  for (std::size_t i = 0; i < row.values.size(); ++i) values[row.columns->names[i]] = row.values[i];
  return values;
}

Request Request::Parse(const std::string& text) {
  const Json::Value members = ReadJson(text, "request");
  Request request;
  if (members["id"].isInt()) request.id = members["id"].asInt();
  if (members["curve"].isInt()) request.curve = members["curve"].asInt();
  if (members["record"].isInt()) request.record = members["record"].asInt();
  if (members["token"].isString()) request.token = members["token"].asString();
  const Json::Value& set = members["set"];
  if (set.isNull()) return request;
  if (!set.isArray() || set.size() > kMostAssignments)
    throw ClientError("at most " + std::to_string(kMostAssignments) +
                      " settings can be set together");
  for (const Json::Value& each : set) {
    if (!each.isObject() || !each["path"].isString() || !each["value"].isString())
      throw ClientError("what is to be set needs a path and a value, both texts");
    request.assignments.push_back({each["path"].asString(), each["value"].asString(), {}, ""});
  }
  return request;
}
