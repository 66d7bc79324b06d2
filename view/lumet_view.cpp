// A page for the browser that shows one head at work, and operates it.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>

#include "client/lines.h"
#include "common/host_port.h"
#include "view/viewer.h"

namespace {

volatile int stop = 0;

struct ViewOptions {
  HostPort head = {"::1", LineClient::kConsolePort};
  std::optional<HostPort> broker;  // the head's machine where none is named
  WebServer::Options web;
  bool read_only = false;
  std::string token_file;
};

// The directory of the page's files: beside the program as they were installed or built.
std::string PageDirectory() {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  const std::filesystem::path here = program.parent_path();
  for (const auto& place : {here / "share/lumet-view", here.parent_path() / "share/lumet-view"})
    if (std::filesystem::exists(place / "index.html")) return place;
  throw std::runtime_error("the files of the page are not in share/lumet-view beside " +
                           program.string() + "; --page tells where they are");
}

CLI::Option* AddPlace(CLI::App& app, const std::string& name, int default_port,
                      const std::function<void(const HostPort&)>& set, const std::string& help) {
  return app
      .add_option_function<std::string>(
          name,
          [default_port, set](const std::string& text) {
            try {
              set(HostPort::Parse(text, default_port));
            } catch (const std::invalid_argument& error) {
              throw CLI::ValidationError(error.what());
            }
          },
          help)
      ->type_name("HOST[:PORT]");
}

void AddOptions(CLI::App& app, ViewOptions& options) {
  app.set_version_flag("--version", "lumet-view " LUMET_VERSION);
  AddPlace(
      app, "--head", LineClient::kConsolePort, [&](const HostPort& place) { options.head = place; },
      "Where the head is; ::1, port 7246 without it");
  AddPlace(
      app, "--broker", BusOptions().port, [&](const HostPort& place) { options.broker = place; },
      "Where its message bus is; the head's machine, port 1883\nwithout it");
  options.web.port = 7280;
  app.add_option("--listen", options.web.address,
                 "Address to serve the page on; any but a loopback address\n"
                 "needs a token for changes")
      ->capture_default_str();
  app.add_option("--port", options.web.port, "TCP port of the page; 0 takes a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_flag("--read-only", options.read_only, "Let no browser change anything");
  app.add_option("--token-file", options.token_file,
                 "File whose first line is the token that changes need;\n"
                 "without it, one is made up and printed where it is needed")
      ->check(CLI::ExistingFile);
  options.web.charts = "/usr/share/javascript/dygraphs";
  app.add_option("--page", options.web.page, "Directory of the page's files")
      ->check(CLI::ExistingDirectory);
  app.add_option("--dygraphs", options.web.charts, "Directory of the charts' library")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
}

std::string TokenOf(const ViewOptions& options) {
  if (options.token_file.empty()) {
    if (options.read_only || WebServer::IsLoopback(options.web.address)) return "";
    constexpr char kDigits[] = "0123456789abcdef";
    std::random_device random;
    std::string token;
    for (int i = 0; i < 32; ++i) token += kDigits[random() % 16];
    return token;
  }
  std::string token;
  std::ifstream file(options.token_file);
  if (!std::getline(file, token) || token.empty())
    throw std::runtime_error("there is no token in " + options.token_file);
  return token;
}

void Serve(ViewOptions& options) {
  if (options.web.page.empty()) options.web.page = PageDirectory();
  if (!std::filesystem::exists(options.web.charts + "/dygraph.min.js"))
    throw std::runtime_error("there is no dygraph.min.js in " + options.web.charts +
                             "; the Debian package libjs-dygraphs has it");
  const std::string token = TokenOf(options);
  const HostPort broker = options.broker.value_or(HostPort{options.head.host, BusOptions().port});
  Viewer viewer(options.head, broker, options.web, {options.read_only, token});
  const bool is_any = options.web.address == "::" || options.web.address == "0.0.0.0";
  std::array<char, 256> machine{};
  if (is_any) gethostname(machine.data(), machine.size() - 1);
  const std::string address = is_any ? machine.data() : options.web.address;
  std::cout << "lumet-view: open http://" << Place(address, viewer.Port()) << "/"
            << (token.empty() || !options.token_file.empty() ? "" : "#token=" + token)
            << " in a browser" << std::endl;
  viewer.Run(stop);
}

int Run(int argc, char** argv) {
  CLI::App app("Shows one head in the browser, live, and operates it.", "lumet-view");
  ViewOptions options;
  AddOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  for (const int signo : {SIGINT, SIGTERM}) std::signal(signo, [](int) { stop = 1; });
  std::signal(SIGPIPE, SIG_IGN);
  Serve(options);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "lumet-view: " << error.what() << std::endl;
    return 1;
  }
}
