#pragma once

#include <json/json.h>

#include <string>

#include "bench/child_process.h"

// One page in a headless Chromium of its own, driven by WebDriver's JSON over HTTP (W3C WebDriver,
// https://www.w3.org/TR/webdriver2/).
//
// Each call throws std::runtime_error when the browser or its driver reports an error.
class Browser {
 public:
  // What it saves goes to `directory`.
  explicit Browser(const std::string& directory);
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  void Open(const std::string& address);
  // What a piece of JavaScript returns.
  Json::Value Run(const std::string& script);
  // Waits until an expression is true.
  void Await(const std::string& expression);
  // Of the element with this id.
  std::string Text(const std::string& id);
  void Click(const std::string& id);
  // Types into the first entry that a selector finds.
  void Enter(const std::string& selector, const std::string& value);
  void Press(const std::string& key);
  // Takes a picture of the whole page into the directory that LUMET_VIEW_SCREENSHOTS in the
  // environment names, if there is one.
  void Picture(const std::string& name, int width, bool is_dark);
  // What the page has complained of.
  std::string Complaints();

 private:
  Json::Value Call(const std::string& method, const std::string& path,
                   const Json::Value& value) const;
  // A command of the browser's own protocol.
  void Tell(const std::string& command, const Json::Value& parameters);
  void Resize(int width, int height);
  void SetTheme(bool is_dark);

  ChildProcess driver;
  int port = 0;
  std::string session;
};
