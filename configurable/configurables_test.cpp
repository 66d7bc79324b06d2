// The tree's language, on a small tree of all kinds of nodes.

#include <initializer_list>
#include <iomanip>
#include <stdexcept>
#include <utility>
#include <vector>

#include "common/test_registry.h"
#include "configurable/configbuiltin.h"
#include "configurable/configurable_attributes.h"
#include "configurable/configurable_composite.h"
#include "configurable/configurable_composite_dynamic.h"
#include "configurable/kept_document.h"

namespace {

using namespace self_test;

struct PlainFloat : ConfigurableFloat {
  explicit PlainFloat(const std::string& name, float value = 0) : ConfigurableFloat(name, value) {}
  // Unlike the leaves of the head, this one fails its element for a bad text.
  std::istream& read_value(std::istream& in, std::ostream& err) override {
    float value = 0;
    if (in >> value)
      set(value);
    else
      err << "unable to read float";
    return in;
  }
  std::ostream& print_doctype(std::ostream& out) const override { return out << "float"; }
};

struct FloatList : ConfigurableCompositeDynamic<PlainFloat> {
  explicit FloatList(const std::string& name) : ConfigurableCompositeDynamic(name) {}
  using ConfigurableCompositeDynamic::operator=;
  void copy(PlainFloat& target, const PlainFloat& source) const override {
    target.set(source.get());
  }
  bool same(const PlainFloat& a, const PlainFloat& b) const override {
    return !(a.get() < b.get()) && !(b.get() < a.get());
  }
  void make_unique_list() { unique = true; }
};

struct Branch : ConfigurableComposite {
  using ConfigurableComposite::ConfigurableComposite;
  void add_all(std::initializer_list<Configurable*> members) {
    for (Configurable* member : members) add(member);
  }
};

std::vector<std::string> lunches = {"apple", "translate<>&'\""};

struct Tree : Branch {
  Tree() : Branch("L") {
    add_all({&a, &b, &d, &c, &attic, &lunch, &dog, &dyn});
    d.add_all({&e, &f});
    e.add_all({&g1, &g2, &g3});
    attic.set_flag(Active, false);
    dog.add_attribute(&pitch);
    dog.add_attribute(&sticky);
    sticky.set_flag(Active, false);
  }

  std::string Ask(const std::string& document, bool* failed = nullptr) {
    std::istringstream in(document);
    std::ostringstream out;
    set_compact(out, true);
    read_document(in, out);
    if (failed != nullptr) *failed = in.fail();
    return out.str();
  }
  std::string Changes() {
    std::ostringstream out;
    set_compact(out, true);
    print_changes(out);
    return out.str();
  }

  PlainFloat a{"a", 1234};
  PlainFloat b{"b", 0.1234F};
  Branch d{"d"};
  Branch e{"e"};
  PlainFloat g1{"g", 0.11F};
  PlainFloat g2{"g", 0.22F};
  PlainFloat g3{"g", 0.33F};
  PlainFloat f{"f", 6.5F};
  PlainFloat c{"c", 43.21F};
  PlainFloat attic{"attic", 1};
  ConfigurableMultipleChoice lunch{"lunch", &lunches, 0};
  PlainFloat dog{"dog", 88.11F};
  PlainFloat pitch{"pitch", 11.22F};
  Configurable sticky{"sticky"};
  FloatList dyn{"dyn"};
};

// Leaves its format on every stream that it gets.
struct Careless : Configurable {
  using Configurable::Configurable;
  std::istream& read_value(std::istream& in, std::ostream& err) override {
    in >> std::hex >> std::noskipws >> number;
    print_value(err);
    err.setstate(std::ios_base::badbit);
    return in;
  }
  std::ostream& print_value(std::ostream& out) const override {
    out << std::hex << std::showpos << std::fixed << std::setprecision(1) << std::setfill('*');
    SetTimestampFormat(out, {'/', '.', 'T', true});
    out.width(4);
    return out;
  }
  std::ostream& print_doctype(std::ostream& out) const override { return print_value(out); }
  int number = 0;
};

void FormatCases() {
  struct : Branch {
    using Branch::Branch;
    Careless careless{"careless"};
    ConfigurableInteger integer{"integer", 31};
    ConfigurableFloat real{"real", 0.25F};
    ConfigurableDate date{"date", Timestamp()};
  } tree("L");
  tree.add_all({&tree.careless, &tree.integer, &tree.careless, &tree.real, &tree.careless,
                &tree.date, &tree.careless});
  std::istringstream in(
      "<L><careless>ff</careless><integer> 32</integer>&query;&query_doctype_item;</L>");
  std::ostringstream out;
  set_compact(out, true);
  tree.read_document(in, out);
  ExpectEqual(out.str(),
              "<L><careless/><integer>32</integer><careless/><real>0.25</real><careless/>"
              "<date>1989-01-01</date><careless/></L>"
              "<careless>{***}</careless><integer>{integer:31}</integer><careless>{***}</careless>"
              "<real>{float:0.25}</real><careless>{***}</careless><date>{YYYY-MM-DD}</date>"
              "<careless>{***}</careless>");
  ExpectEqual(tree.careless.number, 255);
}

// Requests in a row on one tree, with their answers; "clear" clears the marks first.
void Converse(Tree& tree, const std::vector<std::pair<std::string, std::string>>& rows) {
  for (const auto& [request, answer] : rows) {
    if (request == "clear")
      tree.set_changed(false);
    else
      ExpectEqual(tree.Ask(request), answer, request);
  }
}

void RequestCases() {
  Tree tree;
  Converse(
      tree,
      {{"clear", ""},
       {"&query_item;",
        "<L><a>1234</a><b>0.1234</b><d><e><g>0.11</g><g>0.22</g><g>0.33</g></e><f>6.5</f></d>"
        "<c>43.21</c><lunch>apple</lunch><dog pitch=\"11.22\">88.11</dog><dyn/></L>"},
       {"&query_changes_item;", ""},
       {"<L><b>1.0</b><c> &query_item; 9 &query_item; </c></L>", "43.21 9"},
       {"&query_changes_item;", "<L><b>1</b><c>9</c></L>"},
       {"clear", ""},
       {"<L><d><e><g>1</g></e></d> &query_changes_item; </L> junk that nobody reads",
        "<d><e><g>1</g><g>1</g><g>1</g></e></d>"},
       {"<L><a>qwerty</a><b>2.1</b><a> &query_item; </a><b> &query_item; </b></L>",
        "<Error Param=\"a\">unable to read float</Error>1234 2.1"},
       {"<L><b>&query_illegal;</b></L>",
        "<Error Param=\"b\">Invalid query: &query_illegal;</Error>"},
       {"<L><attic>&query_item;4321</attic><a>2233&query_item;</a></L>", "2233"},
       {"<attic>&query_item;</attic>", "<Error Param=\"L\">Invalid start element: attic</Error>"},
       {"clear", ""},
       {"<L><dog &query_item;></dog></L>", "pitch=\"11.22\""},
       {"<L><dog sticky/></L>", ""},
       {"<L><dog> &query; </dog></L>", "<L><dog sticky>88.11</dog></L>"},
       {"&query_changes_item;", "<L><dog sticky>88.11</dog></L>"},
       {"<L><dog></dog><dog pitch=\"&query_item;\" sticky=\"&query_item;\" /></L>",
        "&disabled; &enabled;"},
       {"<L><dog sticky pitch=\"&query_item;21&query_item;\">1234.5</dog><dog &query_item;/></L>",
        "&disabled; 21 pitch=\"21\" sticky"},
       {"<L><dog>2</dog><dog>&query;</dog></L>", "<L><dog>2</dog></L>"},
       {"<L><dog bark=\"&query_item;15\" pitch=\"&query_item;1&query_item;\"/></L>",
        "&disabled; 1"},
       {"<L><lunch>translate&lt;&gt;&amp;&apos;&quot;</lunch><lunch>&query;</lunch></L>",
        "<L><lunch>translate&lt;&gt;&amp;&apos;&quot;</lunch></L>"},
       {"<L><d><GG>&query_item;</GG></d></L>", ""},
       // A leaf that is given an element ends the document.
       {"<L><a><x>1</x></a><b>&query_item;</b></L>",
        "<Error Param=\"a\">Invalid configuration tag: x</Error>"
        "<Error Param=\"L\">Invalid End Element: a</Error>"},
       {"<L x='1'><b>&query_item;</b></L>",
        "<Error Param=\"L\">This item has no attributes</Error>"},
       // The list.
       {"<L><dyn><val>1.2</val></dyn><dyn>&query;</dyn></L>", "<L><dyn><val>1.2</val></dyn></L>"},
       {"<L><dyn><val1>1</val1><val2>2</val2><val3>3</val3></dyn></L>", ""},
       {"<L><dyn/><dyn></dyn><dyn>&query_item;</dyn></L>",
        "<val1>1</val1><val2>2</val2><val3>3</val3>"},
       {"<L><dyn><val>1</val><val>2</val><val>error</val><val>4</val></dyn></L>",
        "<Error Param=\"val\">unable to read float</Error>"},
       {"<L><dyn>&query_item;</dyn></L>", "<val>1</val><val>2</val><val>4</val>"}});
}

void DoctypeCases() {
  Tree tree;
  Converse(tree, {{"<L><dyn><val>1</val><val>2</val></dyn></L>", ""},
                  {"&query_doctype;",
                   "<L><a>{float}</a><b>{float}</b><d><e><g>{float}</g><g>{float}</g>"
                   "<g>{float}</g></e><f>{float}</f></d><c>{float}</c>"
                   "<lunch>{apple|translate&lt;&gt;&amp;&apos;&quot;}</lunch>"
                   "<dog pitch=\"{float}\" sticky>{float}</dog>"
                   "<dyn><val>{float}</val><val>{float}</val></dyn></L>"},
                  {"<L><dog>&query_doctype_item;</dog></L>", "{float}"},
                  {"<L><dog pitch=\"&query_doctype_item;\"/></L>", "{float}"}});
  std::ostringstream out;
  set_compact(out, true);
  tree.g1.print_query(out);
  ExpectEqual(out.str(), "<L><d><e><g>&query;</g></e></d></L>");
}

void FailureCases() {
  Tree tree;
  for (const auto& [document, expected] :
       std::initializer_list<std::pair<const char*, bool>>{{"", false},
                                                           {"<L><a>1", false},
                                                           {"<L><b>1</a></L>", false},
                                                           {"<L><a>x</a></L>", false},
                                                           {"<a/>", true},
                                                           {"< L/>", true},
                                                           {"<L></M>", true}}) {
    bool failed = false;
    tree.Ask(document, &failed);
    ExpectEqual(failed, expected, document);
  }

  // A lock is reported, and the value is taken all the same; read-only does neither.
  tree.set_locked(true);
  Converse(tree, {{"<L><a>5</a><a>&query_item;</a></L>",
                   "<Error Param=\"a\">Configuration is locked</Error>5"},
                  {"<L><dog sticky/><dog &query_item;/></L>", "sticky"}});
  tree.set_locked(false);
  tree.b.set_flag(Configurable::ReadOnly, true);
  Converse(tree, {{"<L><b>6</b><b>&query_item;</b><a>7</a></L>", "1"}});

  tree.set_throw_errors(true);
  ExpectThrows<Configurable::Error>([&] { tree.Ask("<L><a>x</a></L>"); },
                                    "XML error in item \"a\": unable to read float");
  tree.set_throw_errors(false);
  Converse(tree, {{"<L><a>&query_item;</a></L>", "7"}});

  // A document of queries can't make an unbounded answer.
  std::string greedy = "<L><d>";
  for (int i = 0; i < 400'000; ++i) greedy += "&query;";
  const std::string answer = tree.Ask(greedy + "</d></L>");
  ExpectTrue(
      answer.size() < (17U << 20) && answer.ends_with("<Error Param=\"d\">Answer too long</Error>"),
      "the bound of an answer");
}

void ChangeCases() {
  Tree tree;
  struct Counter : ConfigurableListener {
    void item_changed(const ConfigurableEvent& event) override {
      ++changes;
      source = event.source;
    }
    void item_text(const ConfigurableEvent&, std::string text) override { heard += text + ";"; }
    int changes = 0;
    const Configurable* source = nullptr;
    std::string heard;
  } counter;
  tree.set_changed(false);
  tree.d.set_listener(&counter);
  const auto before = tree.change_count();
  tree.g2.mark_changed();
  ExpectTrue(tree.g2.has_changed() && tree.e.has_changed() && tree.has_changed() &&
                 !tree.g1.has_changed() && !tree.a.has_changed(),
             "a mark that climbs");
  ExpectEqual(tree.change_count(), before + 1);
  ExpectTrue(counter.changes == 1 && counter.source == &tree.d, "a listener's own node");
  tree.e.set_changed(false);
  ExpectTrue(!tree.g2.has_changed() && tree.has_changed(), "a clear that descends");
  tree.set_changed(false);
  Converse(tree, {{"<L><d>one<f>6.5</f>two</d><a>1234</a></L>", ""}});
  ExpectEqual(counter.heard, "one;two;");
  ExpectTrue(!tree.has_changed(), "the same values again");

  tree.sticky.set_flag(Configurable::Active, true);
  tree.sticky.mark_changed();
  ExpectTrue(tree.dog.has_changed() && !tree.pitch.has_changed(), "a changed attribute");
  ExpectEqual(tree.Changes(), "<L><dog pitch=\"11.22\" sticky>88.11</dog></L>");
  tree.pitch.set_flag(Configurable::Active, false);
  tree.set_changed(false);
  ExpectEqual(tree.Changes(), "");
  tree.dog.mark_changed();
  ExpectEqual(tree.Changes(), "<L><dog sticky>88.11</dog></L>");
}

void ListChangeCases() {
  Tree tree;
  // Adding and removing are changes of the list as a whole.
  tree.set_changed(false);
  tree.dyn.add(new PlainFloat("x", 1));
  tree.dyn.add(new PlainFloat("y", 2));
  ExpectTrue(tree.dyn.size() == 2 && tree.has_changed(), "an added child");
  tree.dyn.set_changed(false);
  tree.dyn.children()[0]->mark_changed();
  tree.d.set_changed(false);
  ExpectEqual(tree.Changes(), "<L><dyn><x>1</x><y>2</y></dyn></L>");
  FloatList copy("copy");
  copy = tree.dyn;
  copy.set_changed(false);
  copy = tree.dyn;
  ExpectTrue(copy.size() == 2 && copy.find_same(PlainFloat("z", 2))->name() == "y", "a copy");
  copy.remove_same(copy.child(0));
  copy.make_unique_list();
  copy.add(new PlainFloat("z", 2));
  ExpectTrue(copy.size() == 1 && copy.child(0).name() == "z", "unique children");
  copy.set_changed(false);
  copy.reset();
  ExpectTrue(copy.size() == 0 && copy.has_changed(), "an emptied list");

  // However a mark was made, clearing the root removes it.
  struct Thrower : ConfigurableListener {
    void item_changed(const ConfigurableEvent&) override { throw std::runtime_error("thrown"); }
  } thrower;
  tree.set_changed(false);
  tree.e.set_listener(&thrower);
  ExpectThrows<std::runtime_error>([&] { tree.g1.mark_changed(); }, "thrown");
  tree.dyn.children()[0]->set_flag(Configurable::Changed, true);
  copy.set_changed(true);
  tree.dog.copy_flags(copy);
  tree.set_changed(false);
  for (const Configurable* item :
       std::initializer_list<const Configurable*>{&tree.g1, tree.dyn.children()[0], &tree.dog})
    ExpectTrue(!item->has_changed(), item->name());
}

// A document that is kept answers as a fresh one does, whatever it holds.
void KeptCases() {
  for (const std::string text :
       {"<L><b>&query_item;</b><c>7&query_item;</c> &query_changes_item;</L>",
        "<L><a>1<</a><b>&query_item;</b></L> rest", "<L><e><g/></e><d>&query;</d ></L>",
        "<M>&query;</M>", "&query_changes;", "<L><dog pitch='5' &query;/></L",
        "&query_changes; >"}) {
    Tree fresh;
    Tree tree;
    KeptDocument kept(text);
    for (int i = 0; i < 4; ++i) {
      for (Tree* each : {&fresh, &tree}) {
        each->set_changed(false);
        each->b.set(static_cast<float>(i));
      }
      bool failed = false;
      const std::string expected = fresh.Ask(text, &failed);
      std::ostringstream out;
      set_compact(out, true);
      ExpectTrue(tree.read_document(kept, out) != failed, text);
      ExpectEqual(out.str(), expected, text);
    }
  }
}

}  // namespace

void TestConfigurables(std::ostream&) {
  RequestCases();
  DoctypeCases();
  FormatCases();
  FailureCases();
  ChangeCases();
  ListChangeCases();
  KeptCases();
}
