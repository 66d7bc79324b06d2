#pragma once

#include <string>

// Drawings by gnuplot, which runs as a program of its own.

// How a picture is written.
struct PictureFormat {
  const char* ending;    // of the file's name
  const char* terminal;  // gnuplot's
  double dots;           // pixels for each point of a page; 0 for a size in centimetres
};

// That of a file by the ending of its name: .svg, .png or .pdf. Throws FileError for another one.
const PictureFormat& PictureFormatOf(const std::string& path);

// Throws FileError unless a picture can be drawn into such a file: for a name of another ending,
// and where gnuplot is not installed.
void CheckDrawing(const std::string& path);

// What gnuplot writes to its standard output when it runs `script`, which is the picture where the
// script sets no other output. Throws ClientError, with gnuplot's own words, if it is missing or
// fails.
std::string RunGnuplot(const std::string& script);

// A text for a script, between quotes within which gnuplot replaces nothing.
std::string GnuplotText(const std::string& text);
