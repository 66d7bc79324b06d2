// What is left of the files of a head after a power cut at any moment of its work.
//
// A head runs on the layer of disk_layer.cpp, which writes down all that it does to its files, one
// line for each act: "create PATH", "append PATH", "write BYTES PATH" and the bytes, "sync PATH",
// "rename FROM TO", "link FROM TO", "symlink TARGET PATH", "unlink PATH PATH". From that, every
// state is built that a journaling file system may leave: what was done to names is kept in its
// order, up to any place after the last sync; of the bytes that no sync has reached, any number of
// the first ones are there, and the others are missing or zeros.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bench/head.h"
#include "leaf/lumet/instrument.h"

namespace {

struct Act {
  std::string kind;
  std::string from;  // or the path
  std::string to;
  std::string bytes;
};

std::vector<Act> ReadJournal(const std::string& path) {
  std::istringstream in(ReadFile(path));
  std::vector<Act> acts;
  for (Act act; in >> act.kind;) {
    std::size_t size = 0;
    if (act.kind == "write") in >> size;
    in >> act.from;
    if (act.kind == "rename" || act.kind.ends_with("link")) in >> act.to;
    in.get();
    act.bytes.assign(size, '\0');
    in.read(act.bytes.data(), static_cast<std::streamsize>(size));
    acts.push_back(act);
  }
  return acts;
}

struct Inode {
  std::string bytes;
  std::size_t synced = 0;              // how many of them are on the disk
  std::vector<std::size_t> ends = {};  // of the writes since then
  bool is_link = false;
};

// The disk after some of the acts.
struct Disk {
  std::vector<Inode> inodes;
  std::map<std::string, std::size_t> names;                    // by path
  std::vector<std::map<std::string, std::size_t>> open_names;  // since the last sync, this one last

  void Do(const Act& act) {
    if (act.kind == "write") {
      Inode& inode = inodes[names.at(act.from)];
      inode.bytes += act.bytes;
      inode.ends.push_back(inode.bytes.size());
    } else if (act.kind == "sync") {
      // It commits the journal, and the bytes of one file.
      open_names = {names};
      if (names.contains(act.from)) {
        Inode& inode = inodes[names[act.from]];
        inode.synced = inode.bytes.size();
        inode.ends.clear();
      }
    } else {
      Rename(act);
      open_names.push_back(names);
    }
  }

 private:
  void Rename(const Act& act) {
    if (act.kind == "create" || (act.kind == "append" && !names.contains(act.from))) {
      names[act.from] = inodes.size();
      inodes.push_back({});
    } else if (act.kind == "symlink") {
      names[act.to] = inodes.size();
      inodes.push_back({act.from, act.from.size(), {}, true});
    } else if (act.kind == "rename") {
      names[act.to] = names.at(act.from);
      names.erase(act.from);
    } else if (act.kind == "link") {
      names[act.to] = names.at(act.from);
    } else if (act.kind == "unlink") {
      names.erase(act.from);
    }
  }
};

// What may be left of a file.
std::set<std::string> Contents(const Inode& inode) {
  constexpr std::size_t kSector = 512;
  std::set<std::string> contents = {inode.bytes};
  std::set<std::size_t> lengths(inode.ends.begin(), inode.ends.end());
  for (std::size_t at = inode.synced; at < inode.bytes.size(); at += kSector) lengths.insert(at);
  // In the middle of each write too.
  for (const std::size_t end : inode.ends)
    lengths.insert(std::max(inode.synced, end - end % 7 - 3));
  for (const std::size_t length : lengths) {
    const std::string start = inode.bytes.substr(0, length);
    contents.insert(start);
    contents.insert(start + std::string(inode.bytes.size() - start.size(), '\0'));
  }
  return contents;
}

// Calls `check` with the contents of the file at `path` in every state that the cut may leave; null
// if there is none.
template <class Check>
void ForEachState(const Disk& disk, const std::string& path, Check check) {
  std::set<std::string> seen;
  for (const auto& names : disk.open_names) {
    const auto found = names.find(path);
    if (found == names.end()) {
      check(nullptr, nullptr);
      continue;
    }
    const Inode& inode = disk.inodes[found->second];
    for (const std::string& content : Contents(inode))
      if (seen.insert(content).second) check(&content, &inode);
  }
}

class PowerCut : public testing::Test {
 protected:
  void SetUp() override {
    if (kWithAddressSanitizer)
      GTEST_SKIP() << "no layer can be loaded ahead of AddressSanitizer's own";
  }

  // A head that is set, zeroed, given other zones, and ended. `disk` becomes what it started with.
  void Work(Disk& disk) {
    // The bench writes files of its own at the first start.
    EXPECT_EQ(Head(root.Path(), Head::PlayedBy::kSimulator).Stop(), 0);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.Path())) {
      if (!entry.is_regular_file()) continue;
      const std::string bytes = ReadFile(entry.path());
      disk.names[entry.path()] = disk.inodes.size();
      disk.inodes.push_back({bytes, bytes.size()});
    }
    disk.open_names = {disk.names};
    Head head(root.Path(), Head::PlayedBy::kSimulator, on_layer);
    LineClient client(head.Port());
    const auto send = [&](const std::string& inside) {
      client.Send("<nemra><tavo>" + inside + "</tavo></nemra>\n");
      client.ReadLineThatBegins("<nemra><tavo><ack>");
    };
    for (const char* inside :
         {"<cfg><fan_duty>11</fan_duty></cfg>",
          "<cfg><fan_duty>12</fan_duty></cfg><factory><serialnumber>TVF-0007</serialnumber></"
          "factory>"
          "<cal><DC0>5</DC0></cal>",
          "<cfg><clock><zone>Etc/UTC</zone></clock></cfg>", "<cmd><zero_dc0>true</zero_dc0></cmd>"})
      send(inside);
    head.WaitForLog("new DC0=");
    send("<cfg><clock><zone>Etc/GMT+1</zone></clock><fan_duty>13</fan_duty></cfg>");
    EXPECT_EQ(head.Stop(), 0);
  }

  const TemporaryDirectory root;
  const TemporaryDirectory outside;
  const std::string journal = outside.Path() + "/journal";
  const HeadOptions on_layer = {.wrapper = {"env", "LD_PRELOAD=" DISK_LAYER,
                                            "DISK_ROOT=" + root.Path() + "/",
                                            "DISK_JOURNAL=" + journal}};
};

TEST_F(PowerCut, LeavesTheOldSettingsOrTheNewAndAllLinesOfLogsButTheLast) {
  Disk disk;
  Work(disk);
  const std::vector<Act> acts = ReadJournal(journal);
  const Instrument there(root.Path());
  const std::string settings[] = {there.factory_settings, there.cal_settings, there.main_settings};

  // Every text that a settings file was given is whole.
  std::map<std::string, std::set<std::string>> written;
  for (const std::string& path : settings)
    if (disk.names.contains(path)) written[path].insert(disk.inodes[disk.names[path]].bytes);
  std::map<std::string, std::string> last;
  for (const Act& act : acts) {
    if (act.kind == "create") last[act.from].clear();
    if (act.kind == "write") last[act.from] += act.bytes;
    if (act.kind == "rename" && !act.to.ends_with("localtime"))
      written[act.to].insert(last[act.from]);
  }
  for (const std::string& path : settings) {
    EXPECT_FALSE(written[path].empty()) << path;
    for (const std::string& text : written[path])
      EXPECT_TRUE(text.substr(0, text.find_last_not_of('\n') + 1).ends_with("</nemra>"))
          << path << "\n"
          << text;
  }

  std::size_t states = 0;
  std::map<std::string, bool> is_there;
  for (std::size_t cut = 0; cut <= acts.size(); ++cut) {
    if (cut > 0) disk.Do(acts[cut - 1]);
    for (const auto& [path, texts] : written) {
      // Once it is on the disk, there is always one.
      const bool must_be = is_there[path];
      bool always = true;
      ForEachState(
          disk, path,
          [&, &name = path, &good = texts](const std::string* content, const Inode* inode) {
            ++states;
            always = always && content != nullptr;
            if (content == nullptr || inode->is_link) return;
            EXPECT_TRUE(good.contains(*content))
                << name << " after " << cut << " acts: " << *content;
          });
      EXPECT_TRUE(always || !must_be) << path << " is gone after " << cut << " acts";
      is_there[path] = always;
    }
    for (const std::string& log : {there.run_time_log, there.calibration_log})
      ForEachState(disk, log, [&](const std::string* content, const Inode* inode) {
        ++states;
        if (content == nullptr) return;
        const std::size_t lines =
            static_cast<std::size_t>(std::count(inode->bytes.begin(), inode->bytes.end(), '\n'));
        const std::string whole = content->substr(0, content->find('\0'));
        const auto kept = std::count(whole.begin(), whole.end(), '\n');
        // The header of a log comes with its first line.
        const std::size_t lost = log == there.calibration_log && lines == 2 ? 2 : 1;
        EXPECT_GE(static_cast<std::size_t>(kept) + lost, lines) << log << " after " << cut;
      });
  }
  EXPECT_GT(states, 500U);
  RecordProperty("states", static_cast<int>(states));
  std::cout << states << " states after " << acts.size() << " acts\n";
}

// Fifty settings in one packet are one save, for which each file costs one sync and its directory
// another.
TEST_F(PowerCut, CostsNoMoreSyncsThanItNeeds) {
  Head head(root.Path(), Head::PlayedBy::kSimulator, on_layer);
  LineClient client(head.Port());
  client.ReadLineThatBegins("DATA\t");
  const std::size_t before = ReadJournal(journal).size();
  std::string packet;
  for (int i = 0; i < 50; ++i)
    packet += "<nemra><tavo><cfg><lightsource><Q_setpoint>" + std::to_string(100 + i) +
              "</Q_setpoint></lightsource></cfg></tavo></nemra>\n";
  client.Send(packet);
  for (int i = 0; i < 50; ++i) {
    client.ReadLineThatBegins("<nemra><tavo><ack>");
    EXPECT_NE(ReadFile(root.Path() + "/etc/tavo.conf").find("<Q_setpoint>149<"), std::string::npos);
  }
  const std::vector<Act> acts = ReadJournal(journal);
  const auto syncs = std::count_if(acts.begin() + static_cast<std::ptrdiff_t>(before), acts.end(),
                                   [](const Act& act) { return act.kind.starts_with("sync"); });
  EXPECT_EQ(syncs, 2);
  EXPECT_EQ(head.Stop(), 0);
}

}  // namespace
