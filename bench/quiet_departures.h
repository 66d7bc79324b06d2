#pragma once

#include <streambuf>
#include <string>

// A log without the lines that say how a client has left: somebody who plays with a head on the
// bench closes clients all the time. While this lives, std::cout prints through it.
class QuietDepartures : public std::streambuf {
 public:
  QuietDepartures();
  ~QuietDepartures() override;
  QuietDepartures(const QuietDepartures&) = delete;
  QuietDepartures& operator=(const QuietDepartures&) = delete;

 protected:
  int_type overflow(int_type byte) override;
  std::streamsize xsputn(const char* text, std::streamsize length) override;
  int sync() override;

 private:
  std::streambuf* log;
  std::string line;
};
