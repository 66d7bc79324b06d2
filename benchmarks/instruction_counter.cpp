// A plugin of the user-mode emulator qemu that counts the instructions of the emulated program,
// exactly and the same in every run that takes the same path:
//
//   qemu-arm -plugin build/release/benchmarks/libinstruction_counter.so,out=FILE PROGRAM
//
// FILE then holds a line "Collected : N" for the whole, and for each function of the program's
// symbols a line with its count and its name, the dearest first. What has no symbol, code of shared
// libraries, is summed up as "(libraries)". A child that the program forks does not write.

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The emulator's interface for plugins, version 1, as much of it as is used here; Debian packages
// no header of it.
extern "C" {
struct qemu_info_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
using qemu_plugin_id_t = std::uint64_t;
using qemu_plugin_vcpu_tb_trans_cb_t = void (*)(qemu_plugin_id_t, qemu_plugin_tb*);
using qemu_plugin_udata_cb_t = void (*)(qemu_plugin_id_t, void*);
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, qemu_plugin_vcpu_tb_trans_cb_t);
void qemu_plugin_register_vcpu_insn_exec_inline(qemu_plugin_insn*, qemu_plugin_op, void*,
                                                std::uint64_t);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, qemu_plugin_udata_cb_t, void*);
std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb*);
qemu_plugin_insn* qemu_plugin_tb_get_insn(const qemu_plugin_tb*, std::size_t);
const char* qemu_plugin_insn_symbol(const qemu_plugin_insn*);

[[gnu::visibility("default")]] extern int qemu_plugin_version;
[[gnu::visibility("default")]] int qemu_plugin_install(qemu_plugin_id_t, const qemu_info_t*,
                                                       int count, char** arguments);
}

int qemu_plugin_version = 1;

namespace {

// The count of one function, in one translation. The emulated code adds to it in place.
struct Counter {
  std::string function;
  std::uint64_t instructions = 0;
};

std::deque<Counter> counters;
std::string out_path;
pid_t counted_process = 0;

void CountTranslated(qemu_plugin_id_t, qemu_plugin_tb* block) {
  for (std::size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i) {
    qemu_plugin_insn* const instruction = qemu_plugin_tb_get_insn(block, i);
    const char* const symbol = qemu_plugin_insn_symbol(instruction);
    const std::string_view function = symbol != nullptr && *symbol != '\0' ? symbol : "(libraries)";
    if (i == 0 || counters.back().function != function)
      counters.push_back({std::string(function), 0});
    qemu_plugin_register_vcpu_insn_exec_inline(instruction, QEMU_PLUGIN_INLINE_ADD_U64,
                                               &counters.back().instructions, 1);
  }
}

void WriteCounts(qemu_plugin_id_t, void*) {
  if (getpid() != counted_process) return;
  std::map<std::string, std::uint64_t> by_function;
  std::uint64_t total = 0;
  for (const Counter& counter : counters) {
    by_function[counter.function] += counter.instructions;
    total += counter.instructions;
  }
  std::vector<std::pair<std::uint64_t, std::string>> dearest;
  for (const auto& [function, count] : by_function) dearest.emplace_back(count, function);
  std::sort(dearest.rbegin(), dearest.rend());

  std::FILE* const out = std::fopen(out_path.c_str(), "w");
  if (out == nullptr) {
    std::perror(("instruction_counter: " + out_path).c_str());
    return;
  }
  std::fprintf(out, "Collected : %llu\n", static_cast<unsigned long long>(total));
  for (const auto& [count, function] : dearest)
    std::fprintf(out, "%llu %s\n", static_cast<unsigned long long>(count), function.c_str());
  std::fclose(out);
}

}  // namespace

int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t*, int count, char** arguments) {
  constexpr std::string_view kOut = "out=";
  if (count != 1 || !std::string_view(arguments[0]).starts_with(kOut)) {
    std::fputs("instruction_counter: it takes one argument, out=FILE\n", stderr);
    return 1;
  }
  out_path = std::string_view(arguments[0]).substr(kOut.size());
  counted_process = getpid();
  qemu_plugin_register_vcpu_tb_trans_cb(id, CountTranslated);
  qemu_plugin_register_atexit_cb(id, WriteCounts, nullptr);
  return 0;
}
