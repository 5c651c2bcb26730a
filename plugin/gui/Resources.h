#pragma once
// Where the editor's pictures come from: the PNG files by name.  Until the module carries its
// resource table, the pictures are read from a folder set at run time (the tests point it at
// resources/); with no folder set, nothing is found.

#include <string>
#include <vector>

// GUI thread.  False when there is no picture of that name.
bool loadPng(const std::string& fileName, std::vector<unsigned char>& bytes);
void setPngDirectory(const std::string& directory);
