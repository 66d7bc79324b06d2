// lumetctl's command for rows, and how its commands listen to a head.

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "tools/lumetctl.h"

namespace {

constexpr Timeout kTurn = std::chrono::milliseconds(50);

// The places of the wanted columns; of all if none is named. Throws ClientError.
std::vector<std::size_t> IndicesOf(const Columns& columns, const std::vector<std::string>& wanted) {
  std::vector<std::size_t> indices;
  for (const std::string& column : wanted.empty() ? columns.names : wanted) {
    const auto found = std::find(columns.names.begin(), columns.names.end(), column);
    if (found == columns.names.end()) {
      std::string names;
      for (const std::string& name : columns.names) names += (names.empty() ? "" : ", ") + name;
      throw ClientError("the row " + columns.row + " has no column " + Quoted(column) +
                        "; it has " + names);
    }
    indices.push_back(static_cast<std::size_t>(found - columns.names.begin()));
  }
  return indices;
}

// The names of columns, or the fields of a row with every digit that the head sent.
std::string LineOf(const std::vector<std::string>& cells, const std::vector<std::size_t>& indices) {
  std::string line;
  for (const std::size_t index : indices) line += (line.empty() ? "" : ",") + cells[index];
  return line + "\n";
}

std::string JsonLineOf(const DataRow& row, const std::vector<std::size_t>& indices) {
  const std::vector<std::string> fields = row.Fields();
  std::string line;
  for (const std::size_t index : indices)
    line += (line.empty() ? "{" : ",") + JsonText(row.columns->names[index]) + ":" +
            JsonNumber(fields[index]);
  return line + "}\n";
}

std::string RateText(std::size_t rows, std::chrono::steady_clock::time_point start) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  char text[80];
  std::snprintf(text, sizeof text, "%zu rows in %.1f s", rows, seconds);
  return text;
}

}  // namespace

std::size_t Listen(ConsoleClient& head, const Deadline& end,
                   const std::function<bool(const ConsoleMessage&)>& take,
                   const std::function<bool()>& turn) {
  std::size_t damaged = 0;
  while (!IsInterrupted() && !end.IsOver()) {
    // A Request may have left something that does not show at the descriptor.
    while (true) {
      try {
        const auto message = head.Take();
        if (!message) break;
        if (!take(*message)) return damaged;
      } catch (const NoConnection&) {
        throw;
      } catch (const ClientError& error) {
        if (++damaged == 1) Warn(error.what());
      }
      if (end.IsOver() || IsInterrupted()) return damaged;
    }
    if (turn && !turn()) return damaged;
    end.WaitFor(head.Descriptor(), POLLIN, kTurn);
  }
  return damaged;
}

void PrintRows(const Ctl& ctl, const RowsOptions& options) {
  ConsoleClient head = ctl.Connect();
  const std::string name = options.status ? "DATASTAT" : "DATA";
  // The head may call this locked, and does it all the same. The columns come after the answer.
  if (options.status) head.Request(SettingsDocument("output/status", "true"));
  while (!head.ColumnsOf(name)) head.Next();
  const std::shared_ptr<const Columns> columns = head.ColumnsOf(name);
  const std::vector<std::size_t> indices = IndicesOf(*columns, options.columns);
  std::ofstream file;
  if (options.csv != "-") {
    file.open(options.csv);
    if (!file) throw FileError("unable to write " + options.csv + ": " + std::strerror(errno));
  }
  std::ostream& out = options.csv == "-" ? std::cout : file;
  if (!ctl.json) out << LineOf(columns->names, indices);
  Progress progress;
  std::size_t rows = 0;
  const auto start = std::chrono::steady_clock::now();
  const std::size_t damaged = Listen(
      head, Deadline(options.duration),
      [&](const ConsoleMessage& message) {
        const auto* row = std::get_if<DataRow>(&message);
        if (row == nullptr || row->Name() != name) return true;
        out << (ctl.json ? JsonLineOf(*row, indices) : LineOf(row->Fields(), indices));
        return ++rows != options.count;
      },
      [&] {
        if (options.csv == "-") {
          Flush();
          return true;
        }
        if (!file.flush()) throw FileError("unable to write " + options.csv);
        progress.Show(RateText(rows, start));
        return true;
      });
  if (options.csv == "-") return Flush();
  file.close();
  if (!file) throw FileError("unable to write " + options.csv);
  progress.Wipe();
  std::cerr << RateText(rows, start) << " to " << options.csv;
  if (damaged > 0) std::cerr << ", and " << damaged << " were damaged";
  std::cerr << "\n";
}
