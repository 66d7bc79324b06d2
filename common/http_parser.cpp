#include "common/http_parser.h"

#include <http_parser.h>

#include <exception>
#include <utility>

struct HTTPParser::State {
  State(Listener& message_listener, Kind kind) : listener(message_listener) {
    http_parser_settings_init(&settings);
    settings.on_message_begin = OnMessageBegin;
    settings.on_url = OnURL;
    settings.on_header_field = OnHeaderField;
    settings.on_header_value = OnHeaderValue;
    settings.on_headers_complete = OnHeadersComplete;
    settings.on_body = OnBody;
    settings.on_message_complete = OnMessageComplete;
    http_parser_init(&parser, kind == kRequests    ? HTTP_REQUEST
                              : kind == kResponses ? HTTP_RESPONSE
                                                   : HTTP_BOTH);
    parser.data = this;
  }

  void StoreHeader() {
    if (!field.empty()) headers[field] = value;
    field.clear();
    value.clear();
  }

  static State& Of(http_parser* parser) { return *static_cast<State*>(parser->data); }

  // The library is C, through which no exception may pass. What `act` throws stops the library, and
  // then leaves Parse.
  template <class Act>
  static int Guarded(http_parser* parser, Act act) {
    State& state = Of(parser);
    try {
      act(state);
      return 0;
    } catch (...) {
      state.caught = std::current_exception();
      return -1;
    }
  }

  static int OnMessageBegin(http_parser* parser) {
    State& state = Of(parser);
    state.url.clear();
    state.headers.clear();
    state.body.clear();
    state.field.clear();
    state.value.clear();
    state.value_last = false;
    return 0;
  }
  static int OnURL(http_parser* parser, const char* at, std::size_t length) {
    return Guarded(parser, [=](State& state) { state.url.append(at, length); });
  }
  static int OnHeaderField(http_parser* parser, const char* at, std::size_t length) {
    return Guarded(parser, [=](State& state) {
      if (state.value_last) state.StoreHeader();
      state.field.append(at, length);
      state.value_last = false;
    });
  }
  static int OnHeaderValue(http_parser* parser, const char* at, std::size_t length) {
    return Guarded(parser, [=](State& state) {
      state.value.append(at, length);
      state.value_last = true;
    });
  }
  static int OnHeadersComplete(http_parser* parser) {
    return Guarded(parser, [](State& state) { state.StoreHeader(); });
  }
  static int OnBody(http_parser* parser, const char* at, std::size_t length) {
    return Guarded(parser, [=](State& state) { state.body.append(at, length); });
  }
  static int OnMessageComplete(http_parser* parser) {
    return Guarded(parser, [=](State& state) {
      if (parser->type == HTTP_RESPONSE)
        state.listener.GotHTTPResponse(state.headers, state.body);
      else
        state.listener.GotHTTPRequest(state.url, state.headers, state.body);
      state.has_upgraded = parser->upgrade != 0;
    });
  }

  Listener& listener;
  http_parser_settings settings;
  http_parser parser;
  bool has_upgraded = false;  // what follows is no HTTP any more; the library would begin anew
  bool value_last = false;    // the last piece of a header was of its value
  std::string url;
  Headers headers;
  std::string body;
  std::string field;  // of the header under construction
  std::string value;
  std::exception_ptr caught;  // what a callback has thrown
};

HTTPParser::HTTPParser(Listener& listener, Kind kind)
    : state(std::make_unique<State>(listener, kind)) {}

HTTPParser::~HTTPParser() = default;

void HTTPParser::Parse(std::string_view text) {
  http_parser& parser = state->parser;
  if (state->has_upgraded) return;
  const std::size_t taken =
      http_parser_execute(&parser, &state->settings, text.data(), text.size());
  if (state->caught) std::rethrow_exception(std::exchange(state->caught, nullptr));
  if (taken < text.size() && !state->has_upgraded) throw Error("ERROR in HTTPParser");
}

void HTTPParser::Finish() { Parse(""); }
