#pragma once

#include <vector>

#include "tests/soak_subject.h"

// What a head meets. Each attack takes some seconds, and leaves the surroundings as they were.
struct SoakAttack {
  const char* name;
  void (*run)(SoakSubject& subject);
};

const std::vector<SoakAttack>& SoakAttacks();
