#pragma once
// Where the editor's pictures come from: the PNG resources the module carries, by file name.

#include <string>
#include <vector>

// GUI thread.  False when the module carries no picture of that name.
bool loadPng(const std::string& fileName, std::vector<unsigned char>& bytes);
