#include "tools/event_plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <sstream>
#include <vector>

#include "client/event_results.h"
#include "leaf/lumet/link/sample.h"
#include "tools/event_curve.h"
#include "tools/event_table.h"
#include "tools/terminal.h"

namespace {

constexpr double kReciprocal = 10000;
// No curve has more points than this, except for what an induction has in each decade.
constexpr std::size_t kMostPoints = 2000;

// The page, in points.
constexpr double kWidth = 900;
constexpr double kLeft = 86;
constexpr double kRight = 130;
constexpr double kLetter = 7.5;  // width of one, about

constexpr const char* kFColour = "#b2182b";
constexpr const char* kPFDColour = "#d98200";
constexpr const char* kMeasuringColour = "#6b6b6b";
constexpr const char* kFarRedColour = "#7b3294";
constexpr const char* kInk = "#222222";

struct Range {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();

  Range& Add(double value) {
    if (!std::isfinite(value)) return *this;
    low = std::min(low, value);
    high = std::max(high, value);
    return *this;
  }
  Range& Add(const std::vector<double>& values) {
    for (const double value : values) Add(value);
    return *this;
  }
  // Never empty, and with room for these shares of it at its ends.
  Range With(double below, double above) const {
    if (!(low < high)) return low == high ? Range{low - 1, high + 1} : Range{0, 1};
    return {low - below * (high - low), high + above * (high - low)};
  }
};

std::string Text(double value) { return NumberText(value, 7); }

// Yellow is light, grey is darkness, violet is far red.
const char* ShadeOf(int code) {
  switch (code) {
    case kFlash:
    case kPhase1:
    case kPhase3:
      return "#fff6d0";
    case kPhase2:
      return "#fbe9bd";
    case kDarkBeforeFarRed:
    case kDarkAfterFarRed:
      return "#e3e5ea";
    case kDarkFarRed:
      return "#e9dcee";
    default:
      return "#ffffff";
  }
}

// In few letters, since phases may be short; the grey says that it is dark.
std::string NameOf(int code) {
  if (code == kDarkFarRed) return "far red";
  return code == kDarkBeforeFarRed || code == kDarkAfterFarRed ? "dark" : PhaseName(code);
}

// The least of 1, 2 or 5 times a power of ten that parts `length` into no more than `count`.
double RoundStep(double length, int count) {
  const double power = std::pow(10, std::floor(std::log10(length / count)));
  for (const double factor : {1, 2, 5})
    if (factor * power * count >= length) return factor * power;
  return 10 * power;
}

std::string TypeInWords(const std::string& type) {
  if (type == "RECT") return "Rectangular flash";
  if (type == "MPF") return "Multiphase flash";
  if (type == "INDUCTION") return "Induction";
  if (type == "DARK") return "Dark pulse";
  if (type == "ZERO") return "Flash for a zero";
  return "Event";
}

// A part of the page with axes of its own.
struct Panel {
  double top = 0;  // from that of the page
  double height = 0;
  double Bottom() const { return top + height; }
};

struct Phase {
  int code = 0;
  double from = 0;  // s
  double to = 0;    // s
};

// A sample is the mean of the time since the one before it.
std::vector<Phase> PhasesOf(const EventRecord::Curve& curve) {
  std::vector<Phase> phases;
  for (std::size_t i = 0; i < curve.code.size(); ++i) {
    if (i == 0 || curve.code[i] != curve.code[i - 1])
      phases.push_back({curve.code[i], curve.seconds[i > 0 ? i - 1 : 0], 0});
    phases.back().to = curve.seconds[i];
  }
  return phases;
}

// What is marked by a line across the curve.
struct Mark {
  std::string name;
  std::string value;
  double F = 0;
};

std::optional<Mark> MarkOf(const EventRecord& event) {
  for (const char* name : {"FMAX", "FMIN"}) {
    const auto value = event.Number(name);
    if (!value || !IsMeasured(*value)) continue;
    const bool is_intercept = event.fit && *value == event.fit->intercept;
    return Mark{name,
                is_intercept ? WithError(*value, event.fit->intercept_error) : NumberText(*value),
                *value};
  }
  return std::nullopt;
}

class Script {
 public:
  explicit Script(const EventRecord& event)
      : event(event), rise(FastRiseOf(event)), has_ramp(event.fit && !RampOf().x.empty()) {}

  std::string Write(const PictureFormat& format) {
    page_height = has_ramp ? kRamp.Bottom() + 60 : kLight.Bottom() + 60;
    SetUp(format);
    WriteData();
    WriteTimeAxis();
    DrawF();
    DrawLight();
    if (has_ramp) DrawRamp();
    out << "unset multiplot\n";
    return out.str();
  }

 private:
  static constexpr Panel kF = {70, 330};
  static constexpr Panel kLight = {432, 120};
  static constexpr Panel kRamp = {646, 300};

  // Heights of the page from its bottom, as gnuplot counts.
  double Share(double from_top) const { return 1 - from_top / page_height; }
  // Of time on the axis: of light, logarithmically, or of the event.
  double Unit() const { return rise || event.curve.seconds.back() < kLongInMs ? 1000 : 1; }

  Points RampOf() const {
    Points ramp;
    for (std::size_t i = 0; i < event.curve.code.size(); ++i) {
      if (event.curve.code[i] != kPhase2) continue;
      ramp.x.push_back(kReciprocal / event.curve.pfd[i]);
      ramp.y.push_back(event.curve.fluorescence[i]);
    }
    return Thinned(ramp, kMostPoints / 4);
  }

  void SetUp(const PictureFormat& format) {
    out << "set encoding utf8\nset terminal " << format.terminal << " size ";
    constexpr double kPointsInCentimetre = 40;
    if (format.dots > 0)
      out << kWidth * format.dots << "," << page_height * format.dots << "\n";
    else
      out << kWidth / kPointsInCentimetre << "cm," << page_height / kPointsInCentimetre << "cm\n";
    out << "set multiplot\n"
        << "set border lw 0.8 lc rgb '" << kInk << "'\nset grid lt 1 lw 0.5 lc rgb '#c8c8c8'\n"
        << "set tics nomirror out scale 0.6\nset ytics autofreq\n"
        << "set lmargin at screen " << kLeft / kWidth << "\nset rmargin at screen "
        << 1 - kRight / kWidth << "\n";
    const auto title = [&](double x, double y, const std::string& text) {
      out << "set label " << GnuplotText(text.substr(0, 120)) << " at screen " << x << ",screen "
          << Share(y) << " left\n";
    };
    title(kLeft / kWidth, 22,
          TypeInWords(event.type) + " " + std::to_string(event.id) + " of head " + event.device +
              ", " + Moment(event) + ", " + Extent(event));
  }

  void WriteBlock(const char* name, const Points& points) {
    out << "$" << name << " << END\n";
    for (std::size_t i = 0; i < points.x.size(); ++i)
      out << Text(points.x[i]) << " " << Text(points.y[i]) << "\n";
    out << "END\n";
  }

  // A curve over the axis of time.
  void WriteCurve(const char* name, const std::vector<double>& values) {
    Points points = Thinned({event.curve.seconds, values}, kMostPoints);
    for (double& x : points.x) x *= Unit();
    WriteBlock(name, points);
  }

  void WriteData() {
    if (rise) {
      for (auto [name, points] : {std::pair("f", rise->curve), std::pair("pfd", rise->light)}) {
        for (double& x : points.x) x *= Unit();
        WriteBlock(name, points);
      }
      return;
    }
    WriteCurve("f", event.curve.fluorescence);
    WriteCurve("pfd", event.curve.pfd);
    WriteCurve("measuring", event.curve.redmodavg);
    if (!event.curve.farred.empty()) WriteCurve("farred", event.curve.farred);
  }

  void WriteTimeAxis() {
    if (!rise) {
      time = Range().Add(event.curve.seconds).With(0, 0);
      time.low *= Unit();
      time.high *= Unit();
    } else {
      time = Range().Add(rise->curve.x).With(0, 0.1);
      time.low *= Unit();
      time.high *= Unit();
      out << "set logscale x\n";
    }
    out << "set xrange [" << Text(time.low) << ":" << Text(time.high) << "]\n";
  }

  // The numbers of a logarithmic axis, with their units.
  void WriteDecades(bool with_numbers) {
    static constexpr std::array kDecades = {"1 µs",  "10 µs",  "100 µs", "1 ms",
                                            "10 ms", "100 ms", "1 s",    "10 s"};
    double ms = 1e-3;
    std::string separator;
    out << "set xtics (";
    for (const char* decade : kDecades) {
      out << separator << GnuplotText(with_numbers ? decade : "") << " " << ms;
      for (int i = 2; i < 10; ++i) out << ", '' " << i * ms << " 1";
      separator = ", ";
      ms *= 10;
    }
    out << ")\n";
  }

  void Begin(const Panel& panel, const Range& y, const std::string& y_label) {
    out << "set tmargin at screen " << Share(panel.top) << "\nset bmargin at screen "
        << Share(panel.Bottom()) << "\nset yrange [" << Text(y.low) << ":" << Text(y.high)
        << "]\nset label " << GnuplotText(y_label) << " at screen " << 20 / kWidth << ",screen "
        << Share(panel.top + panel.height / 2) << " center rotate by 90\nset key at graph 1,screen "
        << Share(panel.top - 4) << " right bottom horizontal Left reverse samplen 2 maxrows 1\n";
  }
  // Terminals put their own labels at distances of their own, and cut them off.
  void LabelX(const Panel& panel, const std::string& label) {
    out << "set label " << GnuplotText(label) << " at graph 0.5,screen "
        << Share(panel.Bottom() + 42) << " center\n";
  }
  void End() { out << "unset object\nunset arrow\nunset label\n"; }

  static std::string Line(const char* colour, double width = 1.6) {
    return " with lines lw " + Text(width) + " lc rgb '" + colour + "'";
  }

  void ShadePhases(bool with_names) {
    constexpr double kPanelWidth = kWidth - kLeft - kRight;
    for (Phase phase : PhasesOf(event.curve)) {
      if (rise) {
        // There is nothing else on the axis.
        if (phase.code != kFlash) continue;
        phase = {kFlash, time.low / Unit(), rise->curve.x.back()};
      }
      const double from = phase.from * Unit();
      const double to = phase.to * Unit();
      out << "set object rectangle from " << Text(from) << ",graph 0 to " << Text(to)
          << ",graph 1 behind fillcolor rgb '" << ShadeOf(phase.code)
          << "' fillstyle solid noborder\n";
      const std::string name = NameOf(phase.code);
      const double room = (to - from) / (time.high - time.low) * kPanelWidth;
      if (!with_names || room < kLetter * static_cast<double>(name.size())) continue;
      out << "set label " << GnuplotText(name) << " at "
          << Text(rise ? std::sqrt(from * to) : (from + to) / 2) << ",graph 0.95 center front\n";
    }
  }

  void DrawF() {
    const bool is_dark = event.type == "DARK";
    const auto mark = MarkOf(event);
    Range range;
    range.Add(rise ? rise->curve.y : event.curve.fluorescence);
    if (mark) range.Add(mark->F);
    // That of a flash is compared with nothing at all; a dark pulse changes little.
    if (!is_dark) range.Add(0);
    constexpr double kForNames = 0.14;
    Begin(kF, range.With(is_dark ? 0.06 : 0, kForNames), "F (counts)");
    ShadePhases(true);
    if (mark) {
      out << "set arrow from graph 0,first " << Text(mark->F) << " to graph 1,first "
          << Text(mark->F) << " nohead front dashtype 2 lw 0.8 lc rgb '" << kInk << "'\n";
      int line = 1;
      for (const std::string& text : {mark->name, mark->value})
        out << "set label " << GnuplotText(text) << " at graph 1,first " << Text(mark->F)
            << " left offset 0.8," << Text(line-- - 0.5) << "\n";
    }
    if (rise) MarkSteps();
    if (rise) WriteDecades(false);
    out << "set format x ''\nplot $f" << Line(kFColour) << " title 'F'";
    if (rise) out << ", $steps with points pt 7 ps 0.8 lc rgb '" << kInk << "' notitle";
    out << "\n";
    End();
  }

  void MarkSteps() {
    Points points;
    double line = 0;
    for (const FastRise::Step& step : rise->steps) {
      const double x = step.time * Unit();
      points.x.push_back(x);
      points.y.push_back(step.F);
      const bool is_between = &step != &rise->steps.front() && &step != &rise->steps.back();
      out << "set label '" << step.name << "' at " << Text(x) << "," << Text(step.F)
          << " center offset 0,0.9 front\nset label "
          << GnuplotText(std::string(step.name) + " at " + TimeOf(step) + ": " +
                         NumberText(step.F, 5) + " counts" +
                         (is_between ? ", V " + NumberText(rise->V(step), 3) : ""))
          << " at graph 0.64,graph " << Text(0.30 - 0.065 * line++) << " left front\n";
    }
    WriteBlock("steps", points);
  }

  void DrawLight() {
    const std::vector<double>& pfd = rise ? rise->light.y : event.curve.pfd;
    const Range light = Range().Add(0).Add(pfd).Add(event.curve.farred).With(0, 0.12);
    constexpr int kFewTics = 5;
    Begin(kLight, light, "µmol/m²/s");
    ShadePhases(false);
    if (rise) WriteDecades(true);
    LabelX(kLight, rise ? "time of light" : Unit() > 1 ? "time (ms)" : "time (s)");
    out << "set format x '%g'\nset ytics " << Text(RoundStep(light.high, kFewTics)) << "\nplot $pfd"
        << Line(kPFDColour) << " title 'PFD'";
    if (!rise) out << ", $measuring" << Line(kMeasuringColour, 1) << " title 'measuring light'";
    if (!event.curve.farred.empty())
      out << ", $farred" << Line(kFarRedColour) << " title 'far red'";
    out << "\n";
    End();
  }

  void DrawRamp() {
    const Points ramp = RampOf();
    const EventRecord::Fit& fit = *event.fit;
    WriteBlock("ramp", ramp);
    const Range x = Range().Add(0).Add(ramp.x).With(0.02, 0.05);
    Range y = Range().Add(ramp.y).Add(fit.intercept + fit.intercept_error);
    y = y.Add(fit.intercept + fit.slope * x.high).With(0.08, 0.12);
    Begin(kRamp, y, "F (counts)");
    out << "set xrange [" << Text(x.low) << ":" << Text(x.high)
        << "]\nset xtics autofreq\nset ytics autofreq\n";
    LabelX(kRamp, "10 000/PFD (m² s/µmol)");
    const bool falls = fit.slope < 0;
    const std::array<std::string, 4> lines = {
        "F = P2_INT + P2_SLP × 10 000/PFD",
        "P2_INT = " + WithError(fit.intercept, fit.intercept_error) + " counts",
        "P2_SLP = " + WithError(fit.slope, fit.slope_error) + " (10⁴ counts µmol/m²/s)",
        "P2_R2 = " + NumberText(fit.r2, 4)};
    double line = 0;
    for (const std::string& text : lines)
      out << "set label " << GnuplotText(text) << " at graph 0.5,graph "
          << Text((falls ? 0.93 : 0.30) - 0.075 * line++) << " left front\n";
    out << "set label 'P2_INT' at 0," << Text(fit.intercept) << " left offset 1,"
        << (falls ? 0.4 : -0.4) << " front\n"
        << "$intercept << END\n0 " << Text(fit.intercept) << " " << Text(fit.intercept_error)
        << "\nEND\nset bars 1\nplot $ramp with points pt 7 ps 0.5 lc rgb '" << kFColour
        << "' title 'F, phase 2', " << Text(fit.intercept) << " + " << Text(fit.slope) << " * x"
        << Line(kInk, 1.2) << " title 'line', $intercept with yerrorbars pt 6 ps 1.2 lc rgb '"
        << kInk << "' title 'P2_INT ± s.e.'\n";
    End();
  }

  static constexpr double kLongInMs = 2;  // s

  const EventRecord& event;
  std::optional<FastRise> rise;
  bool has_ramp;
  double page_height = 0;
  Range time;  // on the axis, in its unit
  std::ostringstream out;
};

}  // namespace

std::string PlotScript(const EventRecord& event, const PictureFormat& format) {
  return Script(event).Write(format);
}

void DrawFile(const EventRecord& event, const std::string& path) {
  const PictureFormat& format = PictureFormatOf(path);
  WriteOutput(path, RunGnuplot(PlotScript(event, format)));
}
