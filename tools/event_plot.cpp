#include "tools/event_plot.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>

#include "common/errno_error.h"
#include "leaf/lumet/link/sample.h"

namespace {

constexpr double kReciprocal = 10000;
constexpr double kPanelWidth = 560;
constexpr double kPanelHeight = 300;
constexpr double kMargin = 64;
// A drawing shows no more points of a curve than this.
constexpr std::size_t kMostPoints = 4000;

struct Range {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();
  void Add(double value) {
    if (!std::isfinite(value)) return;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  // Never empty.
  Range Widened() const {
    if (!(low <= high)) return {0, 1};
    return low == high ? Range{low - 1, high + 1} : *this;
  }
};

Range RangeOf(const std::vector<double>& values) {
  Range range;
  for (const double value : values) range.Add(value);
  return range.Widened();
}

const char* ShadeOf(int code) {
  switch (code) {
    case kFlash:
    case kPhase1:
    case kPhase3:
      return "#ffe3e0";
    case kPhase2:
      return "#fff3d6";
    case kDarkBeforeFarRed:
    case kDarkAfterFarRed:
      return "#e4e4ee";
    case kDarkFarRed:
      return "#f1dcec";
    default:
      return "#f7f7f7";
  }
}

// Calls `draw(code, first, last)` for each run of samples of one code.
void ForEachPhase(const EventRecord& event,
                  const std::function<void(int, std::size_t, std::size_t)>& draw) {
  for (std::size_t first = 0; first < event.curve.code.size();) {
    std::size_t last = first;
    while (last + 1 < event.curve.code.size() &&
           event.curve.code[last + 1] == event.curve.code[first])
      ++last;
    draw(event.curve.code[first], first, last);
    first = last + 1;
  }
}

std::string Number(double value) {
  std::ostringstream text;
  text.precision(5);
  text << value;
  return text.str();
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '<')
      escaped += "&lt;";
    else if (letter == '&')
      escaped += "&amp;";
    else
      escaped += letter;
  }
  return escaped;
}

// One frame with its axes. Data coordinates go in.
class Panel {
 public:
  Panel(std::ostream& out, double top, Range x, Range y) : out(out), top(top), x(x), y(y) {}

  double X(double value) const {
    return kMargin + (value - x.low) / (x.high - x.low) * kPanelWidth;
  }
  double Y(double value) const {
    return top + kPanelHeight - (value - y.low) / (y.high - y.low) * kPanelHeight;
  }

  void Shade(double from, double to, const char* colour) const {
    out << "<rect x='" << X(from) << "' y='" << top << "' width='" << std::max(1.0, X(to) - X(from))
        << "' height='" << kPanelHeight << "' fill='" << colour << "'/>\n";
  }

  void Curve(const std::vector<double>& xs, const std::vector<double>& ys,
             const char* colour) const {
    const std::size_t stride = std::max<std::size_t>(1, xs.size() / kMostPoints);
    out << "<polyline fill='none' stroke-width='1.5' stroke='" << colour << "' points='";
    for (std::size_t i = 0; i < xs.size(); i += stride)
      if (std::isfinite(xs[i]) && std::isfinite(ys[i])) out << X(xs[i]) << "," << Y(ys[i]) << " ";
    out << "'/>\n";
  }

  void Points(const std::vector<double>& xs, const std::vector<double>& ys,
              const char* colour) const {
    for (std::size_t i = 0; i < xs.size(); ++i)
      if (std::isfinite(xs[i]) && std::isfinite(ys[i]))
        out << "<circle cx='" << X(xs[i]) << "' cy='" << Y(ys[i]) << "' r='2.5' fill='" << colour
            << "'/>\n";
  }

  void Text(double at_x, double at_y, const char* anchor, const std::string& text,
            const char* colour = "#222222") const {
    out << "<text x='" << at_x << "' y='" << at_y << "' text-anchor='" << anchor << "' fill='"
        << colour << "'>" << Escaped(text) << "</text>\n";
  }

  // The frame, with numbers at the ends and the middle of each axis.
  void Frame(const std::string& title, const std::string& x_label, const std::string& y_label,
             const char* y_colour) const {
    out << "<rect x='" << kMargin << "' y='" << top << "' width='" << kPanelWidth << "' height='"
        << kPanelHeight << "' fill='none' stroke='#222222'/>\n";
    Text(kMargin, top - 10, "start", title);
    Text(kMargin + kPanelWidth / 2, top + kPanelHeight + 36, "middle", x_label);
    Text(kMargin, top - 26, "start", y_label, y_colour);
    for (const double share : {0.0, 0.5, 1.0}) {
      const double x_value = x.low + share * (x.high - x.low);
      const double y_value = y.low + share * (y.high - y.low);
      Text(X(x_value), top + kPanelHeight + 18, "middle", Number(x_value));
      Text(kMargin - 6, Y(y_value) + 4, "end", Number(y_value), y_colour);
    }
  }

  // A second scale on the right.
  void RightScale(Range values, const std::string& label, const char* colour) const {
    const double right = kMargin + kPanelWidth;
    Text(right, top - 26, "end", label, colour);
    for (const double share : {0.0, 0.5, 1.0})
      Text(right + 6, top + kPanelHeight * (1 - share) + 4, "start",
           Number(values.low + share * (values.high - values.low)), colour);
  }

 private:
  std::ostream& out;
  double top;
  Range x;
  Range y;
};

// F over 10000/Q in phase 2.
struct Ramp {
  std::vector<double> x;
  std::vector<double> f;
};

Ramp RampOf(const EventRecord& event) {
  Ramp ramp;
  for (std::size_t i = 0; i < event.curve.code.size(); ++i) {
    if (event.curve.code[i] != kPhase2) continue;
    ramp.x.push_back(kReciprocal / event.curve.pfd[i]);
    ramp.f.push_back(event.curve.fluorescence[i]);
  }
  return ramp;
}

void DrawPng(const EventRecord& event, const std::string& path) {
  std::ostringstream script;
  WriteGnuplot(event, path, script);
  FILE* const gnuplot = popen("gnuplot", "w");
  if (gnuplot == nullptr) throw ErrnoError("unable to start gnuplot");
  std::signal(SIGPIPE, SIG_IGN);
  std::fputs(script.str().c_str(), gnuplot);
  const int status = pclose(gnuplot);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
    throw ClientError("PNG needs gnuplot, which is not installed");
  if (status != 0) throw ClientError("gnuplot failed");
}

}  // namespace

void PrintResults(const EventRecord& event, std::ostream& out) {
  constexpr std::array kNames = {"EVENT_ID",
                                 "DEVICE",
                                 "DATE",
                                 "TIME",
                                 "TYPE",
                                 "FMAX",
                                 "QMAX",
                                 "FMIN",
                                 "QMIN",
                                 "MODRATE",
                                 "P1_MAXF",
                                 "P2_SLP",
                                 "P2_INT",
                                 "P2_R2",
                                 "P2_SLP_SE",
                                 "P2_INT_SE",
                                 "P2_DQDT",
                                 "P3_Q",
                                 "P3_MAXF",
                                 "P3_PREDF",
                                 "P3_DELTAF",
                                 "OUTRATE",
                                 "MARGIN",
                                 "DURATION",
                                 "PHASE1_DURATION",
                                 "PHASE2_DURATION",
                                 "PHASE3_DURATION",
                                 "Q_RED_SETPOINT",
                                 "D_RED_PERCENT",
                                 "RAMP",
                                 "BEFORE",
                                 "AFTER",
                                 "Q_FARRED_SETPOINT",
                                 "D_FARRED_PERCENT"};
  for (const char* name : kNames) {
    const auto found = event.values.find(name);
    if (found == event.values.end()) continue;
    std::string line = name;
    line.resize(20, ' ');
    const auto* number = std::get_if<double>(&found->second);
    out << line << (number != nullptr ? Number(*number) : std::get<std::string>(found->second))
        << "\n";
  }
  out << "samples             " << event.curve.seconds.size() << "\n";
}

void DrawSvg(const EventRecord& event, std::ostream& out) {
  constexpr const char* kFColour = "#a01818";
  constexpr const char* kQColour = "#2060a0";
  constexpr double kTop = 60;
  const int panels = event.fit ? 2 : 1;
  out << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kPanelWidth + 2 * kMargin
      << "' height='" << panels * (kPanelHeight + 120)
      << "' font-family='sans-serif' font-size='12'>\n"
      << "<rect width='100%' height='100%' fill='white'/>\n";

  const Range f_range = RangeOf(event.curve.fluorescence);
  const Range q_range = RangeOf(event.curve.pfd);
  const Panel f_panel(out, kTop, RangeOf(event.curve.seconds), f_range);
  const Panel q_panel(out, kTop, RangeOf(event.curve.seconds), q_range);
  ForEachPhase(event, [&](int code, std::size_t first, std::size_t last) {
    const std::size_t next = std::min(last + 1, event.curve.seconds.size() - 1);
    f_panel.Shade(event.curve.seconds[first], event.curve.seconds[next], ShadeOf(code));
  });
  q_panel.Curve(event.curve.seconds, event.curve.pfd, kQColour);
  f_panel.Curve(event.curve.seconds, event.curve.fluorescence, kFColour);
  f_panel.Frame(event.type + " " + std::to_string(event.id) + ", " + event.date + " " + event.time,
                "time (s)", "F (counts)", kFColour);
  f_panel.RightScale(q_range, "PFD (µmol/m²/s)", kQColour);

  if (event.fit) {
    const Ramp ramp = RampOf(event);
    const auto& [slope, intercept, r2, slope_error, intercept_error] = *event.fit;
    Range x = RangeOf(ramp.x);
    x.low = 0;
    Range y = RangeOf(ramp.f);
    y.Add(intercept);
    const Panel panel(out, kTop + kPanelHeight + 110, x, y);
    panel.Points(ramp.x, ramp.f, kFColour);
    panel.Curve({0, x.high}, {intercept, intercept + slope * x.high}, "#222222");
    panel.Frame("phase 2, fit: Fm' = " + Number(intercept) + " ± " + Number(intercept_error) +
                    ", R² = " + Number(r2),
                "10000 / PFD", "F (counts)", kFColour);
  }
  out << "</svg>\n";
}

void WriteGnuplot(const EventRecord& event, const std::string& png, std::ostream& out) {
  out << "set terminal pngcairo size 900," << (event.fit ? 1000 : 550) << "\n"
      << "set output '" << png << "'\n$event << EOD\n";
  const std::size_t stride = std::max<std::size_t>(1, event.curve.seconds.size() / kMostPoints);
  for (std::size_t i = 0; i < event.curve.seconds.size(); i += stride)
    out << event.curve.seconds[i] << " " << event.curve.fluorescence[i] << " " << event.curve.pfd[i]
        << "\n";
  out << "EOD\n";
  const Ramp ramp = RampOf(event);
  if (event.fit) {
    out << "$ramp << EOD\n";
    for (std::size_t i = 0; i < ramp.x.size(); ++i) out << ramp.x[i] << " " << ramp.f[i] << "\n";
    out << "EOD\nset multiplot layout 2,1\n";
  }
  int object = 0;
  ForEachPhase(event, [&](int code, std::size_t first, std::size_t last) {
    const std::size_t next = std::min(last + 1, event.curve.seconds.size() - 1);
    out << "set object " << ++object << " rectangle from " << event.curve.seconds[first]
        << ", graph 0 to " << event.curve.seconds[next] << ", graph 1 fillcolor rgb '"
        << ShadeOf(code) << "' fillstyle solid noborder behind\n";
  });
  out << "set title '" << event.type << " " << event.id << "'\n"
      << "set xlabel 'time (s)'\nset ylabel 'F (counts)'\nset y2label 'PFD (µmol/m²/s)'\n"
      << "set ytics nomirror\nset y2tics\n"
      << "plot $event using 1:2 with lines title 'F', '' using 1:3 axes x1y2 with lines title "
         "'PFD'\n";
  if (event.fit)
    out << "unset object\nunset y2tics\nunset y2label\nset title 'phase 2'\n"
        << "set xlabel '10000 / PFD'\nset xrange [0:*]\n"
        << "plot $ramp using 1:2 with points title 'F', " << event.fit->intercept << " + "
        << event.fit->slope << " * x with lines title 'fit'\nunset multiplot\n";
}

void DrawFile(const EventRecord& event, const std::string& path) {
  if (path.ends_with(".png")) return DrawPng(event, path);
  std::ofstream file(path);
  DrawSvg(event, file);
  if (!file.flush()) throw ErrnoError("unable to write " + path);
}
