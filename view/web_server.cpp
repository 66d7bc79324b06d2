#include "view/web_server.h"

#include <arpa/inet.h>
#include <libwebsockets.h>

#include <array>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace {

constexpr lws_usec_t kTick = 25'000;  // microseconds
// What may wait for a browser: rows up to the one, texts up to the other.
constexpr std::size_t kMostRows = 8 << 20;
constexpr std::size_t kMostTexts = 64 << 20;
constexpr std::size_t kLongestRequest = 64 << 10;
constexpr std::size_t kMostBrowsers = 32;
constexpr unsigned kMostDescriptors = 200;
constexpr const char* kProtocol = "lumet-view";

// What browsers are to keep to: nothing comes from elsewhere, and nobody frames the page. The
// charts' library writes styles into elements.
const struct lws_protocol_vhost_options kNoReferrer = {nullptr, nullptr,
                                                       "referrer-policy:", "no-referrer"};
const struct lws_protocol_vhost_options kNoGuess = {&kNoReferrer, nullptr,
                                                    "x-content-type-options:", "nosniff"};
const struct lws_protocol_vhost_options kHeaders = {
    &kNoGuess, nullptr, "content-security-policy:",
    "default-src 'none'; img-src 'self' data: blob:; script-src 'self'; style-src 'self' "
    "'unsafe-inline'; connect-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action "
    "'self'"};

std::string Header(struct lws* socket, lws_token_indexes header) {
  std::array<char, 512> text{};
  const int length = lws_hdr_copy(socket, text.data(), static_cast<int>(text.size()), header);
  return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

// The machine of "HOST:PORT", without brackets.
std::string HostOf(const std::string& place) {
  const std::size_t bracket = place.find(']');
  if (place.starts_with('[') && bracket != std::string::npos) return place.substr(1, bracket - 1);
  return place.substr(0, place.find(':'));
}

struct lws_http_mount Mount(const char* place, const std::string& directory,
                            const struct lws_http_mount* next) {
  struct lws_http_mount mount = {};
  mount.mount_next = next;
  mount.mountpoint = place;
  mount.mountpoint_len = static_cast<unsigned char>(std::strlen(place));
  mount.origin = directory.c_str();
  mount.origin_protocol = LWSMPRO_FILE;
  mount.def = "index.html";
  mount.cache_revalidate = 1;
  return mount;
}

}  // namespace

// What the library keeps pointers to.
struct WebServer::Library {
  static int Call(struct lws* socket, enum lws_callback_reasons reason, void* user, void* data,
                  size_t size);
  static void Tick(lws_sorted_usec_list_t* timer);

  lws_sorted_usec_list_t timer = {};  // the first member, by which Tick finds this
  WebServer* server = nullptr;
  std::string page;
  std::string charts;
  struct lws_http_mount charts_mount = {};
  struct lws_http_mount page_mount = {};
  std::array<struct lws_protocols, 3> protocols = {};
  // Browsers that have gone without a word.
  lws_retry_bo_t idle = {};
};

int WebServer::Library::Call(struct lws* socket, enum lws_callback_reasons reason, void* user,
                             void* data, size_t size) {
  auto* const library = static_cast<Library*>(lws_context_user(lws_get_context(socket)));
  WebServer& server = *library->server;
  auto* const browser = static_cast<Browser*>(user);
  // Nothing may be thrown through the library.
  try {
    switch (reason) {
      case LWS_CALLBACK_FILTER_PROTOCOL_CONNECTION:
        return server.Admits(socket) ? 0 : 1;
      case LWS_CALLBACK_ESTABLISHED:
        *browser = ++server.last_browser;
        server.browsers[*browser].socket = socket;
        server.listener.Opened(*browser);
        return 0;
      case LWS_CALLBACK_CLOSED:
        server.browsers.erase(*browser);
        server.listener.Closed(*browser);
        return 0;
      case LWS_CALLBACK_RECEIVE:
        if (!server.browsers.contains(*browser) || lws_frame_is_binary(socket) != 0) return -1;
        server.Receive(
            *browser, {static_cast<const char*>(data), size},
            lws_is_final_fragment(socket) != 0 && lws_remaining_packet_payload(socket) == 0);
        return 0;
      case LWS_CALLBACK_SERVER_WRITEABLE: {
        const auto found = server.browsers.find(*browser);
        return found != server.browsers.end() && WebServer::Write(found->second) ? 0 : -1;
      }
      default:
        return lws_callback_http_dummy(socket, reason, user, data, size);
    }
  } catch (const std::exception& error) {
    std::cerr << "lumet-view: a browser's connection ends: " << error.what() << std::endl;
    return -1;
  }
}

void WebServer::Library::Tick(lws_sorted_usec_list_t* timer) {
  auto* const library = reinterpret_cast<Library*>(timer);
  WebServer& server = *library->server;
  lws_sul_schedule(server.context.get(), 0, timer, Tick, kTick);
  server.listener.Tick();
}

WebServer::Message::Message(const void* data, std::size_t size, bool is_text)
    : buffer(LWS_PRE + size), is_text(is_text) {
  if (size > 0) std::memcpy(buffer.data() + LWS_PRE, data, size);
}

std::size_t WebServer::Message::Size() const { return buffer.size() - LWS_PRE; }

std::shared_ptr<WebServer::Message> WebServer::Message::Text(std::string_view text) {
  return std::shared_ptr<Message>(new Message(text.data(), text.size(), true));
}

std::shared_ptr<WebServer::Message> WebServer::Message::Numbers(
    const std::vector<double>& numbers) {
  return std::shared_ptr<Message>(
      new Message(numbers.data(), numbers.size() * sizeof(double), false));
}

void WebServer::ContextDeleter::operator()(struct lws_context* old) const {
  lws_context_destroy(old);
}

bool WebServer::IsLoopback(const std::string& host) {
  struct in_addr four = {};
  if (inet_pton(AF_INET, host.c_str(), &four) == 1) return ntohl(four.s_addr) >> 24 == 127;
  return host == "::1" || host == "localhost";
}

WebServer::WebServer(const Options& options, Listener& listener)
    : listener(listener),
      is_loopback(IsLoopback(options.address)),
      library(std::make_unique<Library>()) {
  lws_set_log_level(LLL_ERR, [](int, const char* line) { std::cerr << "lumet-view: " << line; });
  library->server = this;
  library->page = options.page;
  library->charts = options.charts;
  library->charts_mount = Mount("/dygraphs", library->charts, nullptr);
  library->page_mount = Mount("/", library->page, &library->charts_mount);
  library->protocols[0] = {"http", lws_callback_http_dummy, 0, 0, 0, nullptr, 0};
  library->protocols[1] = {kProtocol, Library::Call, sizeof(Browser), 4096, 0, nullptr, 0};
  library->idle.secs_since_valid_ping = 10;
  library->idle.secs_since_valid_hangup = 20;

  struct lws_context_creation_info info = {};
  const bool is_any = options.address == "::" || options.address == "0.0.0.0";
  const std::string address = options.address == "localhost" ? "::1" : options.address;
  info.iface = is_any ? nullptr : address.c_str();
  info.port = options.port;
  info.mounts = &library->page_mount;
  info.protocols = library->protocols.data();
  info.user = library.get();
  info.retry_and_idle_policy = &library->idle;
  info.fd_limit_per_thread = kMostDescriptors;
  info.headers = &kHeaders;
  info.options = LWS_SERVER_OPTION_VALIDATE_UTF8 | LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND;
  context.reset(lws_create_context(&info));
  if (!context)
    throw std::runtime_error("unable to listen on port " + std::to_string(options.port) + " of " +
                             options.address);
  port = lws_get_vhost_listen_port(lws_get_vhost_by_name(context.get(), "default"));
}

// While the library ends the last connections, this is still whole.
WebServer::~WebServer() { context.reset(); }

// A page of another origin must not reach the head through the browser of somebody who looks at it,
// nor one whose name was made to lead to this machine.
bool WebServer::Admits(struct lws* socket) const {
  const std::string host = Header(socket, WSI_TOKEN_HOST);
  const std::string origin = Header(socket, WSI_TOKEN_ORIGIN);
  const bool is_own = origin.empty() || origin == "http://" + host || origin == "https://" + host;
  return is_own && (!is_loopback || IsLoopback(HostOf(host))) && browsers.size() < kMostBrowsers;
}

void WebServer::Receive(Browser browser, std::string_view piece, bool is_last) {
  std::string& incoming = browsers.at(browser).incoming;
  if (incoming.size() + piece.size() > kLongestRequest)
    throw std::runtime_error("it sends requests that are too long");
  incoming += piece;
  if (!is_last) return;
  const std::string text = std::move(incoming);
  incoming.clear();
  listener.Got(browser, text);
}

bool WebServer::Write(Connection& connection) {
  if (connection.waiting.empty()) return true;
  const std::shared_ptr<Message> message = std::move(connection.waiting.front());
  connection.waiting.pop_front();
  connection.waiting_bytes -= message->Size();
  const int written =
      lws_write(connection.socket, message->buffer.data() + LWS_PRE, message->Size(),
                message->is_text ? LWS_WRITE_TEXT : LWS_WRITE_BINARY);
  if (!connection.waiting.empty()) lws_callback_on_writable(connection.socket);
  return written >= static_cast<int>(message->Size());
}

void WebServer::Send(Browser browser, const std::shared_ptr<Message>& message) {
  const auto found = browsers.find(browser);
  if (found == browsers.end()) return;
  Connection& connection = found->second;
  const std::size_t waits = connection.waiting_bytes;
  if (!message->is_text && waits > kMostRows) return;
  if (waits > kMostTexts) {
    lws_set_timeout(connection.socket, PENDING_TIMEOUT_USER_REASON_BASE, LWS_TO_KILL_ASYNC);
    return;
  }
  connection.waiting.push_back(message);
  connection.waiting_bytes += message->Size();
  lws_callback_on_writable(connection.socket);
}

void WebServer::Run(const volatile int& stop) {
  lws_sul_schedule(context.get(), 0, &library->timer, Library::Tick, kTick);
  while (stop == 0 && lws_service(context.get(), 0) >= 0) {
  }
  lws_sul_cancel(&library->timer);
}
