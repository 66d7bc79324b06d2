#include <ostream>
void TestLumet(std::ostream&);
void TestLumet(std::ostream&) {}
void TestPollProcessor(std::ostream&);
void TestPollProcessor(std::ostream&) {}
void TestDelimParser(std::ostream&);
void TestDelimParser(std::ostream&) {}
