#pragma once
// Which command lines can be started without a shell.
#include <string>
#include <vector>

namespace qdmhost {

// The words of a line that a shell would take literally: blank-separated
// words of letters, digits and _ - . / : , + @ = only, the first word no
// assignment, shell keyword or built-in. Empty when the line needs a shell
// to mean what it says (quoting, expansion, redirection, operators, ...).
std::vector<std::string> PlainCommandWords(const std::string& line);

}  // namespace qdmhost
