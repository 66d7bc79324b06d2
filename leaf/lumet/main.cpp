#include "leaf/lumet/lumet_app.h"

int main(int argc, char** argv) { return RunLumet(Instrument(), Machine(), argc, argv); }
