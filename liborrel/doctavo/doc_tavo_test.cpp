#include "liborrel/doctavo/doc_tavo.h"

#include <memory>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "common/test_registry.h"

void SystemFileCases();

namespace {

using namespace self_test;
using namespace std::string_literals;

std::string Ask(DocTavo& doc, const std::string& document) {
  std::istringstream in(document);
  std::ostringstream out;
  set_compact(out, true);
  doc.request(in, out);
  return out.str();
}

std::string InTavo(const std::string& document) {
  return "<nemra><tavo>" + document + "</tavo></nemra>";
}

std::string InCfg(const std::string& document) { return InTavo("<cfg>" + document + "</cfg>"); }

std::string Printed(Configurable& item) {
  std::ostringstream out;
  item.print_tree(out);
  return out.str();
}

void DocumentCases() {
  DocTavo doc;
  const std::pair<std::string, std::string> rows[] = {
      {InTavo("<serialnumber>mine</serialnumber><factory><serialnumber>TVF-1</serialnumber>"
              "</factory><serialnumber>&query_item;</serialnumber>"),
       "TVF-1"},
      {InTavo(
           "<history><record><time>2000-01-01 00:00:00</time><DC0>1</DC0></record><record>"
           "<time>never</time></record><r><time>2000-01-02</time><type>Pc0</type></r></history>"),
       "<Error Param=\"time\">unable to read Timestamp\n</Error>"},
      {InTavo("<history>&query_item;</history>"),
       "<record><time>2000-01-01 00:00:00</time><type/><DC0>1</DC0><Pc0>0</Pc0></record>"
       "<r><time>2000-01-02 00:00:00</time><type>Pc0</type><DC0>0</DC0><Pc0>0</Pc0></r>"},
      {InCfg("<clock><zone>{UTC|Europe/Berlin|America/Chicago}</zone><zone>Europe/Berlin</zone>"
             "<zone>&query_item;&query_doctype_item;</zone></clock>"),
       "Europe/Berlin {UTC|Europe/Berlin|America/Chicago}"},
      {InCfg("<network><ipaddress>10.1.2.3</ipaddress><ipaddress>&query_item;&query_doctype_item;"
             "</ipaddress></network>"),
       "10.1.2.3 {int.int.int.int}"},
  };
  for (const auto& [request, answer] : rows) ExpectEqual(Ask(doc, request), answer, request);
  for (const char* address : {"1.2", "fe80::1", "/etc/passwd"})
    ExpectThrows<SocketError>(
        [&] {
          Ask(doc, InCfg(std::string("<network><gateway>") + address + "</gateway></network>"));
        },
        std::string("SocketAddress: illegal address ") + address);
  ExpectEqual(Ask(doc, InCfg("<network><ipaddress>&query_item;</ipaddress></network>")),
              "10.1.2.3");
}

void HostNameCases() {
  DocTavo doc;
  const std::string longest_label(63, 'x');
  const auto try_name = [&](const std::string& name, bool is_taken) {
    doc.Conf().Cfg().Network().Name().reset();
    const std::string answer =
        Ask(doc, InCfg("<network><name>" + name + "</name><name>&query_item;</name></network>"));
    ExpectEqual(answer.ends_with("</Error>ch4-xxxx"), !is_taken, name);
    ExpectEqual(answer == name, is_taken, name);
  };
  for (const std::string& name : {"a"s, "7.Head-2.local"s, longest_label}) try_name(name, true);
  for (const std::string& name : {"-a"s, "a-"s, "a..b"s, ".a"s, "a."s, "a\nb"s, "a/b"s, "a_b"s,
                                  "a b"s, "\u00e4"s, longest_label + "y", longest_label + ".y"})
    try_name(name, false);
}

struct Listener : ConfigurableListener {
  Listener(const char* text, std::string& order) : text(text), order(order) {}
  void item_changed(const ConfigurableEvent&) override { order += text; }
  const char* text;
  std::string& order;
};

void ListenerCases() {
  DocTavo doc;
  std::string order;
  Listener second("2", order);
  Listener first("1", order);
  doc.add_listener("10-Second", &second);
  doc.add_listener("00-First", &first);
  doc.set_changed(false);
  Ask(doc, "&query_item;");
  ExpectEqual(order, "", "listeners without a change");
  // A command is reset before each document, so that it fires each time.
  const std::string flash = InTavo("<cmd><rect>true</rect></cmd>");
  for (const char* heard : {"12", "1212"}) {
    Ask(doc, flash);
    ExpectEqual(order, heard);
    ExpectTrue(doc.Conf().Cmd().Rect().has_changed() && !doc.Conf().needs_saving(), "a command");
    doc.set_changed(false);
  }
  doc.remove_listener("00-First");
  Ask(doc, InCfg("<fan_duty>7</fan_duty>"));
  ExpectEqual(order, "12122");
  ExpectTrue(doc.Conf().needs_saving(), "a setting");

  // Everybody hears what was taken, whatever fails in the document or in an earlier listener, even
  // one that removes the next; the first failure is the one that is thrown.
  struct Failing : Listener {
    Failing(DocTavo& document, std::string& log) : Listener("f", log), doc(document) {}
    void item_changed(const ConfigurableEvent& event) override {
      Listener::item_changed(event);
      doc.remove_listener("05-Next");
      throw std::runtime_error("a listener");
    }
    DocTavo& doc;
  } failing(doc, order);
  doc.add_listener("04-Failing", &failing);
  doc.add_listener("05-Next", &first);
  order.clear();
  ExpectThrows<std::runtime_error>([&] { Ask(doc, InCfg("<fan_duty>8</fan_duty>")); },
                                   "a listener");
  ExpectEqual(order, "f2");
  ExpectThrows<SocketError>(
      [&] {
        Ask(doc, InCfg("<fan_duty>9</fan_duty><network><gateway>junk</gateway></network>"
                       "<fan_freq>9</fan_freq>"));
      },
      "SocketAddress: illegal address junk");
  ExpectEqual(order, "f2f2");
  ExpectTrue(doc.Conf().Cfg().FanDuty().get() == 9 && doc.Conf().Cfg().FanFreq().get() == 60,
             "what stands ahead of a failure");
}

// Sets the texts that it visits to values from its seed.
class Shaker : public ConfigurableVisitor {
 public:
  explicit Shaker(unsigned seed) : random(seed) {}
  using ConfigurableVisitor::visit;
  void visit(ConfigurableString& item) override {
    const std::string bytes = "ab <>&\"';{}µ|&query";
    std::string text = "x";
    for (std::size_t i = random() % 12; i > 0; --i) text += bytes[random() % bytes.size()];
    item.set(text + "x");
  }

 private:
  std::mt19937 random;
};

void RoundTripCases() {
  for (unsigned seed = 0; seed < 200; ++seed) {
    DocTavo doc;
    Shaker shaker(seed);
    doc.accept(shaker);
    // The name takes no text but a host name.
    doc.Conf().Cfg().Network().Name().reset();
    for (unsigned i = 0; i < seed % 4; ++i)
      doc.Conf().History().add(
          new ConfigCalRecordTavo(Timestamp(1e8 * i + seed), "zero", static_cast<int>(i), -1));
    const std::string printed = Printed(doc);
    DocTavo copy;
    std::istringstream in(printed);
    std::ostringstream errors;
    copy.read_document(in, errors);
    ExpectTrue(!in.fail() && errors.str().empty(), errors.str());
    ExpectEqual(Printed(copy), printed, "seed " + std::to_string(seed));
  }
}

}  // namespace

void TestDocTavo(std::ostream&) {
  DocumentCases();
  HostNameCases();
  ListenerCases();
  RoundTripCases();
  SystemFileCases();
}

// The shared settings in the form in which a sibling document holds them.
void TestDocKesh(std::ostream&) {
  struct Document : ConfigurableComposite {
    Document() : ConfigurableComposite("kesh") {
      add(&clock);
      add(&network);
    }
    ConfigCfgClock clock{false};
    ConfigCfgNetwork network;
  } doc;
  doc.set_throw_errors(true);
  const std::string settings =
      "<kesh><clock><time>12:13:14</time><date>2026-01-02</date><zone>UTC</zone>"
      "<ptp>preferred</ptp></clock><network><name>unit-7</name><configuration>manual"
      "</configuration><ipaddress>10.0.0.2</ipaddress><netmask>255.0.0.0</netmask>"
      "<gateway>10.0.0.1</gateway></network></kesh>";
  std::istringstream in(settings + "<kesh><clock><time_t>5</time_t></clock>&query;</kesh>");
  std::ostringstream out;
  set_compact(out, true);
  doc.read_document(in, out);
  doc.read_document(in, out);
  ExpectEqual(out.str(), settings);
  ExpectThrows<Configurable::Error>(
      [&] {
        std::istringstream bad("<kesh><clock><ptp>never</ptp></clock></kesh>");
        doc.read_document(bad, out);
      },
      "XML error in item \"ptp\": invalid option: never\n");
  doc.reset();
  ExpectEqual(doc.network.Gateway().get().ToString() + doc.clock.Date().get(),
              "192.168.1.11970-01-01");
}
