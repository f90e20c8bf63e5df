// Which DLLs a DLL needs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velto::check {

// The names in the import table and in the table of delayed imports, in their order, of a 64-bit DLL or
// program whose file has this content. Ends at the first damaged entry; empty for another file.
std::vector<std::string> ImportedNames(std::string_view content);

} // namespace velto::check
