#pragma once
// Opening a web page in the user's default browser, without waiting for it and without a shell.

#include <functional>
#include <string>

// GUI thread.  Starts the opener and returns at once; failures are silent.
void openUrl(const std::string& url);
// Collects openers that have finished, without blocking; the editor's idle calls it.
void collectUrlOpeners();
// Replaces the opener (tests); an empty function restores the system's.
void setUrlOpener(std::function<void(const std::string&)> opener);
