#pragma once
// orm-render --check: loads a system description and says what it holds, or why it does not load.

#include <string>

namespace orm_render {

// Prints the graphs (type, rate, inputs, outputs), the system's inputs and outputs and the
// controls on stdout, or "orm-render: <message>" on stderr.  Renders nothing.  0 or 1.
int checkDescription(const std::string& path);

}  // namespace orm_render
