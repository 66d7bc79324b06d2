// What the client library makes of rows and answers that are damaged, cut oddly, or look alike.

#include <gtest/gtest.h>
#include <poll.h>

#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/head.h"
#include "client/console.h"
#include "client/event_record.h"

namespace {

TEST(Client, TakesOnlyRowsThatAreWhole) {
  RowReader reader;
  EXPECT_THROW(reader.Read("DATASTAT\t1\t183"), ClientError) << "before its header row";
  reader.Read("DATASTATH\tTIME\tDIAG\tCHK");
  reader.Read("DATASTATU\tseconds\tCHK");  // too short for the names, so it is ignored
  EXPECT_EQ(reader.ColumnsOf("DATASTAT")->units, std::vector<std::string>(2));
  reader.Read("DATADIAGH\tONE\tTWO\tFOUR");
  EXPECT_EQ(reader.DiagNames(5), (std::vector<std::string>{"ONE", "FOUR"}));

  const struct {
    const char* fields;
    const char* result;  // the sum of the values, or a part of the error
  } rows[] = {
      {"1\t2\t", "3"},
      {"-1e3\t0x00ff\t", "-745"},
      {"inf\t2\t", "inf"},
      {"1\t-nan\t", "nan"},
      {"1\t", "with 1 fields for 2 columns"},
      {"1\t\t", "no number in the field ''"},
      {"1\t0xfg\t", "no number in the field '0xfg'"},
      {"1\t1e999\t", "no number in the field '1e999'"},
  };
  for (const auto& row : rows) {
    std::string line = std::string("DATASTAT\t") + row.fields;
    unsigned sum = 0;
    for (const char byte : line) sum += static_cast<unsigned char>(byte);
    std::string checksum = std::to_string(sum % 256);
    checksum.insert(0, 3 - checksum.size(), '0');
    std::ostringstream result;
    try {
      const auto data = std::get<DataRow>(reader.Read(line + checksum));
      EXPECT_THROW(data["TDigital"], ClientError);
      result << std::abs(data["TIME"] + data["DIAG"]) * (data["TIME"] < 0 ? -1 : 1);
    } catch (const ClientError& error) {
      result << error.what();
    }
    EXPECT_NE(result.str().find(row.result), std::string::npos) << line << ": " << result.str();
    for (const std::string& wrong : {std::string("256"), checksum + "0", std::string("xyz"),
                                     std::to_string(100 + (sum + 1) % 100)})
      EXPECT_THROW(reader.Read(line + wrong), ClientError) << line << wrong;
  }
  EXPECT_THROW(reader.Read("DATAFLRAW\tabc"), ClientError);
  EXPECT_TRUE(std::get<CaptureRow>(reader.Read("DATAFLRAW\t")).bytes.empty());
  EXPECT_EQ(std::get<MessageRow>(reader.Read("DATAMSG\tDSP: a\tb")).text, "DSP: a\tb");
  EXPECT_EQ(std::get<EventRow>(reader.Read("DATAEVENT\tSN\t")).value, "");
  for (const char* line : {"", "DATA", "DATA1\t", "<DATA>\t", "data\t"})
    EXPECT_FALSE(RowReader::IsRow(line)) << line;
}

// Requests are numbered from 1; what is found is written as "1: answer", "1! failure", "~ change"
// or "? stray", each in brackets.
TEST(Client, FindsWhereAnswersEnd) {
  const std::string ack = "<nemra><tavo><ack>true</ack></tavo></nemra>";
  const std::string error = "<nemra><tavo><error>bad</error></tavo></nemra>";
  const std::string news = "<nemra><tavo><cfg><a>1</a></cfg></tavo></nemra>";
  const struct {
    std::vector<std::string> requests;
    bool standing;
    std::vector<std::string> lines;  // a row is "DATA"
    std::string found;
  } rows[] = {
      {{"<a/>"}, false, {"", ack}, "[1: ]"},
      {{"<a/>", "<b/>"}, false, {"33", ack, "44", ack}, "[1: 33][2: 44]"},
      // The acknowledgement itself was asked for.
      {{"<ack>&query;</ack>"}, false, {ack, ack}, "[1: " + ack + "]"},
      // Line feeds in a message, in an attribute, between elements, in a value.
      {{"<a/>"},
       false,
       {"<Error Param=\"a\">no: b", "</Error>", ack},
       "[1: <Error Param=\"a\">no: b\n</Error>]"},
      {{"<a/>"}, false, {"<a b=\">", "DATA\t\"/>", ack}, "[1: <a b=\">\nDATA\t\"/>]"},
      // A request that failed, at its beginning and within, and those after it.
      {{"<a/>", "<b/>"}, false, {error, "2", ack}, "[1! " + error + "][2: 2]"},
      {{"<a/>", "<b/>"},
       false,
       {"<nemra><tavo>7" + error, "", ack},
       "[1! <nemra><tavo>7" + error + "][2: ]"},
      {{"<error>&query;</error>"}, false, {error, ack}, "[1: " + error + "]"},
      {{"<error>&query;</error>", "<b/>"},
       false,
       {error, "DATA", "", ack},
       "[1! " + error + "][2: ]"},
      // News of a standing query: alone, before an answer, between two.
      {{}, true, {news, "DATA", news}, "[~ " + news + "][~ " + news + "]"},
      {{"<a/>"}, true, {news, news, ack}, "[~ " + news + "][1: " + news + "]"},
      {{"<a/>"}, true, {news, "DATA", "", ack}, "[~ " + news + "][1: ]"},
      {{"<a/>", "<b/>"}, true, {"1", ack, news, "2", ack}, "[1: 1][~ " + news + "][2: 2]"},
      // Lines that nobody asked for.
      {{}, false, {ack}, "[? ]"},
      {{"<a/>"}, false, {"1", "DATA", "2", ack}, "[? ][1: 2]"},
      {{}, false, {"</a></a>", "<!-- -->", "<?xml?>"}, "[? ][? ][? ]"},
  };
  for (const auto& row : rows) {
    AnswerReader reader;
    if (row.standing) reader.ExpectChanges();
    int number = 0;
    for (const std::string& request : row.requests) reader.Expect(++number, request);
    std::string found;
    for (const std::string& line : row.lines) {
      if (line == "DATA")
        reader.PassRow();
      else
        reader.Put(line);
      while (const auto next = reader.Next()) {
        if (const auto* change = std::get_if<Change>(&*next)) found += "[~ " + change->text + "]";
        if (const auto* answer = std::get_if<NumberedAnswer>(&*next))
          found += "[" + std::to_string(answer->request) + (answer->answer.failed ? "! " : ": ") +
                   answer->answer.text + "]";
        if (std::holds_alternative<ClientError>(*next)) found += "[? ]";
      }
    }
    EXPECT_EQ(found, row.found);
  }
}

TEST(Client, ReadsWhatWasRefused) {
  const struct {
    Answer answer;
    const char* refused;
  } rows[] = {
      {{"33 44"}, ""},
      {{"<nemra><tavo><error>old</error></tavo></nemra>"}, ""},
      {{"<Error Param=\"a\">no: b\n</Error><Error Param=\"c\">&lt;</Error>5"},
       "the head refused: a: no: b; c: <"},
      {{"12<nemra><tavo><error>bad</error></tavo></nemra>", true}, "the head refused: bad"},
      {{"<nemra><tavo>"}, "the head's answer is no XML"},
  };
  for (const auto& row : rows) {
    std::string refused;
    try {
      row.answer.Check();
    } catch (const ClientError& error) {
      refused = error.what();
    }
    EXPECT_TRUE(row.refused[0] == 0 ? refused.empty() : refused.starts_with(row.refused))
        << row.answer.text << ": " << refused;
  }
  std::string deep;
  for (int i = 0; i < 100'000; ++i) deep += "<a>";
  for (int i = 0; i < 100'000; ++i) deep += "</a>";
  EXPECT_THROW(ReadSettings(deep), ClientError);
  const Element tree = ReadSettings("<nemra><tavo><cfg><name>a&lt;b</name></cfg></tavo></nemra>\n");
  EXPECT_EQ(tree.At("tavo/cfg/name").text, "a<b");
  EXPECT_EQ(tree.Find("tavo/cfg/nam"), nullptr);
  EXPECT_EQ(SettingsDocument("cfg/name", EscapedValue("a<b")),
            "<nemra><tavo><cfg><name>a&lt;b</name></cfg></tavo></nemra>");
}

TEST(Client, ReadsRecordsWithResultsThatAreNoNumbers) {
  const std::string arrays =
      "\"SECS\":[0,1e-3],\"LUMET\":[1,nan],\"DC\":[1,2],\"PFD\":[inf,-inf],\"REDMODAVG\":[0,0],";
  const EventRecord record = EventRecord::Parse(
      "{\n\"EVENT_ID\":7,\n\"DEVICE\":\"nan,inf\",\n"
      "\"TYPE\":\"MPF\",\n\"P2_SLP\":-nan,\n" +
      arrays + "\n\"CODE\":[4,5]\n}\n");
  EXPECT_EQ(record.id, 7);
  EXPECT_EQ(record.device, "nan,inf");
  EXPECT_TRUE(std::isnan(record.fit->slope) && std::isnan(record.curve.fluorescence[1]));
  EXPECT_TRUE(record.curve.pfd[0] > 0 && record.curve.pfd[1] < 0 &&
              std::isinf(record.curve.pfd[1]));
  EXPECT_FALSE(record.Number("FMAX"));
  EXPECT_FALSE(record.Number("DEVICE"));
  for (const std::string& bad :
       {std::string("{"), "{" + arrays + "\"CODE\":[4]}", "{" + arrays + "\"CODE\":[4,\"5\"]}",
        "{" + arrays + "\"CODE\":5}", std::string("{\"SECS\":[]}")})
    EXPECT_THROW(EventRecord::Parse(bad), ClientError) << bad;
}

std::string TextOf(const std::function<void()>& act) {
  try {
    act();
  } catch (const ClientError& error) {
    return error.what();
  }
  return "nothing went wrong";
}

TEST(Client, ServesAProgramWithALoopOfItsOwn) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator, {.bench = {"--rate", "200"}});
  ConsoleClient client(head.Port());
  EXPECT_EQ(client.Head().model, "TAVO");
  client.Watch("cfg");
  const int request = client.Ask(
      "\n<nemra>\n<tavo><cfg><fan_duty>33</fan_duty><fan_mode>fast"
      "</fan_mode></cfg></tavo></nemra>\n");
  std::string answered;
  std::string changed;
  bool has_row = false;
  const Deadline deadline(kDefaultTimeout);
  while ((answered.empty() || changed.empty() || !has_row) &&
         deadline.WaitFor(client.Descriptor(), POLLIN)) {
    while (const auto message = client.Take()) {
      has_row |= std::holds_alternative<DataRow>(*message);
      if (const auto* change = std::get_if<Change>(&*message))
        changed = ReadSettings(change->text).At("tavo/cfg/fan_duty").text;
      if (const auto* answer = std::get_if<NumberedAnswer>(&*message))
        answered = answer->request == request ? answer->answer.Refusals().at(0).item : "another";
    }
  }
  EXPECT_EQ(answered, "fan_mode");
  EXPECT_EQ(changed, "33");
  EXPECT_TRUE(has_row);

  // The head's words, and those for waiting in vain.
  EXPECT_EQ(TextOf([&] { client.Set("cfg/clock/date", "never"); }),
            "the head refused: Invalid date format (should be YYYY-MM-DD): never");
  EXPECT_EQ(TextOf([&] { client.Get("cfg/nonsense"); }), "the head has no setting 'cfg/nonsense'");
  EXPECT_EQ(TextOf([&] { client.Request("fan_duty"); }),
            "this is no document for a head: 'fan_duty'");
  client.SetWaitLimit(std::chrono::milliseconds(100));
  const std::string waited = TextOf([&] { client.WaitForEvent("NEVER"); });
  EXPECT_TRUE(waited.starts_with("waited 0.1 s for the event NEVER; the last that came is 'DATA\t"))
      << waited;
  EXPECT_EQ(head.Stop(), 0);
  EXPECT_TRUE(TextOf([&] {
                while (true) client.Next();
              }).ends_with("has closed the connection"));
  EXPECT_TRUE(TextOf([&] { ConsoleClient(head.Port()); }).ends_with(": Connection refused"));
}

// What answers is not a head, or one that sends damaged rows.
TEST(Client, TellsWhatCameInstead) {
  Socket listener(AF_INET6, SOCK_STREAM, 0);
  listener.Bind(SocketAddress("::1"));
  listener.Listen(8);
  SocketAddress address(AF_INET6);
  listener.GetSockName(address);
  const ConsoleOptions options = {.port = address.GetPort(),
                                  .timeout = std::chrono::milliseconds(200)};
  const auto meet = [&](const std::string& greeting) {
    std::thread server([&] {
      WaitReadable(listener.GetFD(), std::chrono::steady_clock::now() + kDeadline, "a client");
      Socket connection(listener, nullptr);
      connection.Write(greeting);
      char byte = 0;
      recv(connection.GetFD(), &byte, 1, 0);  // until the client goes
    });
    std::string text = TextOf([&] {
      ConsoleClient client(options);
      for (const char* expected : {"damaged row", "asked for"})
        EXPECT_NE(TextOf([&] { client.Next(); }).find(expected), std::string::npos);
      EXPECT_EQ(client.NextData()["TIME"], 1);
    });
    server.join();
    return text;
  };
  const std::string place = "[::1]:" + std::to_string(options.port);
  EXPECT_EQ(meet(""), "waited 0.2 s for the greeting of the head at " + place + "; nothing came");
  EXPECT_EQ(meet("220 mail\n"), "the head sent what nobody asked for: '220 mail'");
  EXPECT_EQ(meet("DATADIAGH\tA\n"), "what answers at " + place + " is no head");
  EXPECT_EQ(meet("DATAEVENT\tMODEL\tTAVO\nDATAH\tTIME\tCHK\nDATADIAGH\tA\n"
                 "DATA\t1\t000\nhello\nDATA\t1\t093\n"),
            "nothing went wrong");
}

}  // namespace
