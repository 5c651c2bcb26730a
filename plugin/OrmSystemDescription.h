#pragma once
// The amplifier's system description, held in the module as text.

#include <string>

// Load time: the whole document, both channels and the eight controls.
std::string makeOrmSystemDescription();
