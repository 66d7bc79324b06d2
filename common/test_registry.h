#pragma once

#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

// One named self-test of the program, run by its option -u. A failing test ends the process.
//
// Constructing a test links it into the process-wide list, so it must live as long as the process.
class Test {
 public:
  // A test goes after the first one in the list whose priority is not below its own, or to the
  // front if its priority is below that of the first. With equal priorities the list is
  // therefore the first test, then the others, last one first.
  Test(const char* test_name, int test_priority);
  virtual ~Test() = default;
  Test(const Test&) = delete;
  Test& operator=(const Test&) = delete;

  virtual void Run(std::ostream& out) = 0;

  // Runs the whole list, saying on `out` what it does.
  static void RunAll(std::ostream& out);

 private:
  const char* name;
  int priority;
  Test* next = nullptr;
};

// What the self-tests assert with: the failure names the place and both values, then aborts.
namespace self_test {

// A place in the code: std::source_location, which not every compiler in use has yet.
struct Where {
  const char* file;
  int line;
  static Where Current(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return {file, line};
  }
};

[[noreturn]] void Fail(const std::string& text, const Where& where);

// Bytes as lower-case hexadecimal digits, for texts of failures.
std::string Hex(std::string_view bytes);

template <class T>
std::string Shown(const T& value) {
  std::ostringstream text;
  if constexpr (requires { text << value; })
    text << value;
  else
    text << "(a value without a text)";
  return text.str();
}

[[noreturn]] void FailUnequal(std::string_view what, const std::string& actual,
                              const std::string& expected, const Where& where);

inline void ExpectTrue(bool holds, std::string_view what = "condition",
                       const Where& where = Where::Current()) {
  if (!holds) Fail(std::string(what) + " does not hold", where);
}

// Texts of all kinds are compared in one place: there are very many kinds.
void ExpectSameText(std::string_view actual, std::string_view expected, std::string_view what,
                    const Where& where);

template <class Actual, class Expected>
void ExpectEqual(const Actual& actual, const Expected& expected, std::string_view what = "",
                 const Where& where = Where::Current()) {
  if constexpr (std::is_convertible_v<const Actual&, std::string_view> &&
                std::is_convertible_v<const Expected&, std::string_view>)
    ExpectSameText(actual, expected, what, where);
  else if (!(actual == expected))
    FailUnequal(what, Shown(actual), Shown(expected), where);
}

// `act` must throw an Error whose text is `text`.
template <class Error, class Act>
void ExpectThrows(Act act, std::string_view text, const Where& where = Where::Current()) {
  try {
    act();
  } catch (const Error& error) {
    return ExpectSameText(error.what(), text, "the error's text", where);
  }
  Fail("nothing thrown instead of: " + std::string(text), where);
}

}  // namespace self_test
