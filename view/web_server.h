#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct lws;
struct lws_context;

// Serves the files of a page, and talks to the browsers that show it over web sockets.
//
// One thread does it all: Run, which calls the listener. What browsers send is bounded, and a
// browser that does not keep up loses rows, never texts.
class WebServer {
 public:
  using Browser = int;  // none has 0

  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void Opened(Browser browser) = 0;
    virtual void Closed(Browser browser) = 0;
    virtual void Got(Browser browser, const std::string& text) = 0;
    // Many times a second.
    virtual void Tick() = 0;
  };

  struct Options {
    std::string address = "::1";
    int port = 0;        // 0 takes a free one
    std::string page;    // directory of the page's files
    std::string charts;  // that of the charts' library, which the page has under /dygraphs
  };

  // A text, or bytes, for any number of browsers.
  class Message {
   public:
    static std::shared_ptr<Message> Text(std::string_view text);
    // Numbers in the order of bytes of this machine, eight bytes each.
    static std::shared_ptr<Message> Numbers(const std::vector<double>& numbers);
    std::size_t Size() const;

   private:
    friend class WebServer;
    Message(const void* data, std::size_t size, bool is_text);
    std::vector<std::uint8_t> buffer;  // with room in front, where the library puts its header
    bool is_text;
  };

  // Listens. `listener` must outlive this. Throws std::runtime_error.
  WebServer(const Options& options, Listener& listener);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  int Port() const { return port; }
  // Whether only this machine can reach it.
  bool IsLoopback() const { return is_loopback; }
  static bool IsLoopback(const std::string& host);

  // Messages of numbers are dropped while much waits for the browser; one that leaves texts unread
  // beyond all measure is let go. Does nothing for a browser that has gone.
  void Send(Browser browser, const std::shared_ptr<Message>& message);
  std::size_t Browsers() const { return browsers.size(); }

  // Serves until *stop is not 0.
  void Run(const volatile int& stop);

 private:
  struct Library;
  struct Connection {
    struct lws* socket;
    std::deque<std::shared_ptr<Message>> waiting;
    std::size_t waiting_bytes = 0;
    std::string incoming;
  };
  struct ContextDeleter {
    void operator()(struct lws_context* old) const;
  };

  bool Admits(struct lws* socket) const;
  void Receive(Browser browser, std::string_view piece, bool is_last);
  // False when the connection is lost.
  static bool Write(Connection& connection);

  Listener& listener;
  bool is_loopback;
  std::map<Browser, Connection> browsers;
  Browser last_browser = 0;
  std::unique_ptr<Library> library;
  std::unique_ptr<struct lws_context, ContextDeleter> context;
  int port = 0;
};
