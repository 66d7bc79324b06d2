// lumetctl's command for the state of a head.

#include <iostream>

#include "client/diag_words.h"
#include "common/host_port.h"
#include "tools/lumetctl.h"

namespace {

// What the head measures at present.
struct Present {
  std::optional<DataRow> data;
  std::optional<DataRow> status;
  double rate = 0;  // rows per second, by their own times
};

Present Measure(ConsoleClient& head) {
  constexpr auto kLongEnough = std::chrono::milliseconds(1100);
  constexpr auto kLongest = std::chrono::milliseconds(3500);
  Present present;
  // The head may call this locked, and does it all the same.
  head.Request(SettingsDocument("output/status", "true"));
  const Deadline long_enough(kLongEnough);
  double first = 0;
  std::size_t rows = 0;
  Listen(head, Deadline(kLongest), [&](const ConsoleMessage& message) {
    if (const auto* row = std::get_if<DataRow>(&message)) {
      if (row->Name() == "DATASTAT") present.status = *row;
      if (row->Name() == "DATA") {
        if (rows++ == 0) first = (*row)["TIME"];
        present.data = *row;
      }
    }
    return rows < 2 || !present.status || !long_enough.IsOver();
  });
  if (rows > 1) {
    const double seconds = (*present.data)["TIME"] - first;
    present.rate = seconds > 0 ? static_cast<double>(rows - 1) / seconds : 0;
  }
  return present;
}

// The light, by the setting that its `control` selects.
std::string LightText(const Element& light) {
  const std::string& control = light.At("control").text;
  const auto text = [&](const char* name) { return light.At(name).text; };
  if (control == "percent")
    return "red " + text("D_red_percent") + " %, blue " + text("D_blue_percent") + " %, far red " +
           text("D_farred_percent") + " %";
  if (control == "setpoint")
    return "held at " + text("Q_setpoint") + " µmol/m²/s, red " + text("red_mix") + " : blue " +
           text("blue_mix") + " : far red " + text("farred_mix");
  return control;
}

std::string MeasuringText(const Element& measure) {
  const std::string& control = measure.At("control").text;
  std::string text = control;
  if (control == "percent") text = measure.At("D_modred_percent").text + " %";
  if (control == "setpoint") text = measure.At("Q_modred_setpoint").text + " µmol/m²/s";
  return text + "; " + measure.At("dark_modrate").text + " Hz in the dark, " +
         measure.At("light_modrate").text + " Hz in light, " + measure.At("flash_modrate").text +
         " Hz in flashes";
}

std::string FanText(const Element& cfg) {
  const std::string& mode = cfg.At("fan_mode").text;
  return mode == "percent" ? cfg.At("fan_duty").text + " %" : mode;
}

std::string Joined(const std::vector<std::string>& texts, const std::string& separator) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : separator) + text;
  return joined;
}

void PrintText(const Ctl& ctl, const HeadIdentity& identity, const Element& tree,
               const Present& present, const std::vector<std::string>& diag) {
  Table table;
  const Element& cfg = tree.At("cfg");
  table.Add({"head", identity.model + " " + identity.serial_number + ", " + identity.name +
                         ", at " + Place(ctl.head.host, ctl.head.port)});
  table.Add({"versions", "lumet " + identity.version + ", DSP " + tree.At("dsp").text + ", FPGA " +
                             tree.At("fpga").text});
  std::string console = identity.console.value_or("");
  console.erase(0, console.find_first_not_of(' '));
  table.Add({"console", !identity.console ? "nobody"
                        : console.empty() ? "a client without a name"
                                          : console});
  table.Add({"light", LightText(cfg.At("lightsource"))});
  table.Add({"measuring", MeasuringText(cfg.At("measure"))});
  if (present.data) {
    const DataRow& row = *present.data;
    table.Add({"rows", NumberText(present.rate, 4) + " a second (cfg/measure/outrate is " +
                           cfg.At("measure/outrate").text + ")"});
    table.Add({"PFD", NumberText(row["PFD"], 4) + " µmol/m²/s, red " +
                          NumberText(100 * row["REDFRAC"], 3) + " %, blue " +
                          NumberText(100 * row["BLUEFRAC"], 3) + " %, far red " +
                          NumberText(100 * row["FARREDFRAC"], 3) + " %"});
    table.Add({"F", NumberText(row["LUMET"]) + " counts, DC " + NumberText(row["DC"]) + ", PC " +
                        NumberText(row["PC"])});
  } else {
    table.Add({"rows", "none; the processor may be silent"});
  }
  std::vector<std::string> temperatures;
  if (present.status)
    for (std::size_t i = 0; i < present.status->values.size(); ++i)
      if (const std::string& name = present.status->columns->names[i];
          name.starts_with('T') && name != "TIME")
        temperatures.push_back(name + " " + NumberText(present.status->values[i], 4) + " °C");
  table.Add({"temperatures", temperatures.empty() ? "unknown" : Joined(temperatures, ", ")});
  table.Add({"fan", FanText(cfg)});
  table.Add(
      {"zeros", "DC0 " + tree.At("cal/DC0").text + ", Pc0 " + tree.At("cal/Pc0").text + " counts"});
  std::vector<std::string> words;
  for (const std::string& bit : diag) words.push_back(DiagInWords(bit));
  if (words.empty()) words.emplace_back("nothing to report");
  for (std::size_t i = 0; i < words.size(); ++i) table.Add({i == 0 ? "DIAG" : "", words[i]});
  if (const std::string& error = tree.At("error").text; !error.empty())
    table.Add({"last error", error});
  std::cout << table.Text();
}

std::string JsonOfRow(const std::optional<DataRow>& row) {
  if (!row) return "null";
  std::string text;
  const std::vector<std::string> fields = row->Fields();
  for (std::size_t i = 0; i < fields.size(); ++i)
    text += (i == 0 ? "" : ",") + JsonText(row->columns->names[i]) + ":" + JsonNumber(fields[i]);
  return "{" + text + "}";
}

}  // namespace

void PrintStatus(const Ctl& ctl) {
  ConsoleClient head = ctl.Connect();
  const Element tree = head.Get("");
  const Present present = Measure(head);
  const HeadIdentity& identity = head.Head();
  const std::vector<std::string> diag =
      present.data ? head.DiagNames((*present.data)["DIAG"]) : std::vector<std::string>();
  if (!ctl.json) {
    PrintText(ctl, identity, tree, present, diag);
    return Flush();
  }
  std::vector<std::string> bits;
  for (const std::string& bit : diag) bits.push_back(JsonText(bit));
  std::cout << "{\"model\":" << JsonText(identity.model)
            << ",\"version\":" << JsonText(identity.version)
            << ",\"dsp\":" << JsonText(tree.At("dsp").text)
            << ",\"fpga\":" << JsonText(tree.At("fpga").text)
            << ",\"name\":" << JsonText(identity.name)
            << ",\"serialnumber\":" << JsonText(identity.serial_number)
            << ",\"console\":" << (identity.console ? JsonText(*identity.console) : "null")
            << ",\"light_control\":" << JsonText(tree.At("cfg/lightsource/control").text)
            << ",\"measure_control\":" << JsonText(tree.At("cfg/measure/control").text)
            << ",\"rate\":" << JsonNumber(NumberText(present.rate)) << ",\"diag\":["
            << Joined(bits, ",") << "],\"data\":" << JsonOfRow(present.data)
            << ",\"status\":" << JsonOfRow(present.status)
            << ",\"error\":" << JsonText(tree.At("error").text) << "}\n";
  Flush();
}
