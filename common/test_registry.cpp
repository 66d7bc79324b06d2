#include "common/test_registry.h"

#include <cstdlib>
#include <iostream>

namespace {

Test*& Head() {
  static Test* head = nullptr;
  return head;
}

}  // namespace

Test::Test(const char* test_name, int test_priority) : name(test_name), priority(test_priority) {
  Test*& head = Head();
  if (head == nullptr || priority < head->priority) {
    next = head;
    head = this;
    return;
  }
  Test* before = head;
  while (before->priority < priority && before->next != nullptr) before = before->next;
  next = before->next;
  before->next = this;
}

void Test::RunAll(std::ostream& out) {
  for (Test* test = Head(); test != nullptr; test = test->next) {
    out << "\n\nRunning '" << test->name << "'\n";
    test->Run(out);
  }
  out << "\n\nTests Successful!\n";
}

void self_test::Fail(const std::string& text, const Where& where) {
  std::cerr << where.file << ":" << where.line << ": " << text << std::endl;
  std::abort();
}

void self_test::FailUnequal(std::string_view what, const std::string& actual,
                            const std::string& expected, const Where& where) {
  Fail(std::string(what) + " is\n  " + actual + "\nand not\n  " + expected, where);
}

void self_test::ExpectSameText(std::string_view actual, std::string_view expected,
                               std::string_view what, const Where& where) {
  if (actual != expected) FailUnequal(what, std::string(actual), std::string(expected), where);
}

std::string self_test::Hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}
