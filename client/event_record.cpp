#include "client/event_record.h"

#include "client/json_text.h"

namespace {

[[noreturn]] void Refuse(const std::string& reason) {
  throw ClientError("this is no event record: " + reason);
}

std::vector<double> Numbers(const Json::Value& array, const std::string& name) {
  std::vector<double> numbers;
  numbers.reserve(array.size());
  for (const Json::Value& value : array) {
    if (!value.isNumeric()) Refuse("a value of " + name + " is no number");
    numbers.push_back(value.asDouble());
  }
  return numbers;
}

EventRecord::Curve CurveOf(const Json::Value& members) {
  EventRecord::Curve curve;
  const auto read = [&](const char* name, std::vector<double>& numbers) {
    if (!members.isMember(name) || !members[name].isArray())
      Refuse(std::string("it has no ") + name);
    numbers = Numbers(members[name], name);
    if (numbers.size() != members["SECS"].size()) Refuse("its arrays differ in length");
  };
  read("SECS", curve.seconds);
  if (curve.seconds.empty()) Refuse("it has no samples");
  read("LUMET", curve.fluorescence);
  read("DC", curve.dc);
  read("PFD", curve.pfd);
  read("REDMODAVG", curve.redmodavg);
  if (members.isMember("FARRED")) read("FARRED", curve.farred);
  std::vector<double> codes;
  read("CODE", codes);
  for (const double code : codes) curve.code.push_back(static_cast<int>(code));
  return curve;
}

}  // namespace

EventRecord EventRecord::Parse(const std::string& record) {
  const Json::Value members = ReadJson(record, "event record");
  EventRecord event;
  event.curve = CurveOf(members);
  for (const std::string& name : members.getMemberNames()) {
    const Json::Value& value = members[name];
    if (value.isString())
      event.values[name] = value.asString();
    else if (value.isNumeric() || value.isBool())
      event.values[name] = value.asDouble();
  }
  const auto text = [&](const char* name) {
    return members[name].isString() ? members[name].asString() : "";
  };
  event.id = static_cast<int>(event.Number("EVENT_ID").value_or(0));
  event.device = text("DEVICE");
  event.date = text("DATE");
  event.time = text("TIME");
  event.type = text("TYPE");
  event.timestamp = event.Number("TIMESTAMP").value_or(0);
  if (event.type == "MPF")
    event.fit = {event.Number("P2_SLP").value_or(0), event.Number("P2_INT").value_or(0),
                 event.Number("P2_R2").value_or(0), event.Number("P2_SLP_SE").value_or(0),
                 event.Number("P2_INT_SE").value_or(0)};
  return event;
}

std::optional<double> EventRecord::Number(std::string_view name) const {
  const auto found = values.find(name);
  if (found == values.end()) return std::nullopt;
  const auto* number = std::get_if<double>(&found->second);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

double EventRecord::operator[](std::string_view name) const {
  if (const auto number = Number(name)) return *number;
  throw ClientError("the record of the event has no number " + Quoted(name));
}
