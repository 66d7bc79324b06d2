#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/child_process.h"

// A machine of its own on a network of its own, made of namespaces of this one's kernel: with its
// host name, interfaces, routes, and system bus. Making one needs rights; it is gone with this.
class NetworkHost {
 public:
  // Whether this user may make any.
  static bool CanBeMade();

  explicit NetworkHost(const std::string& name);

  // Joins two by a wire, as interface eth0 of each, with the link-local addresses fe80::a and
  // fe80::b and the addresses 10.99.0.10 and 10.99.0.11.
  static void Join(NetworkHost& a, NetworkHost& b);

  // In front of a command, runs it there.
  std::vector<std::string> Wrapper() const;
  // Runs a shell command there to its end; returns what it printed. Throws std::runtime_error when
  // it fails.
  std::string Run(const std::string& command) const;
  // Starts a program there.
  std::unique_ptr<ChildProcess> Start(const std::vector<std::string>& command) const;

  // Starts the system bus and the daemon of service discovery.
  void StartDiscovery();
  void StopDiscovery();

  // While it lives, sockets that this thread makes are on that machine.
  class Visit {
   public:
    explicit Visit(const NetworkHost& host);
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

   private:
    int home;
  };

 private:
  ChildProcess keeper;  // holds the namespaces
  std::unique_ptr<ChildProcess> bus;
  std::unique_ptr<ChildProcess> avahi;
};
