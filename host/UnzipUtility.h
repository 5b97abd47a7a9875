#pragma once
// Unpacking of update modules.
#include <list>
#include <string>

class CUnzip_Utility {
public:
    // Unpacks the archive into folder. An entry with an absolute path, a ".."
    // component, or a link fails the whole unpack before anything is written.
    // When fileList is given, the names of the unpacked files are appended.
    // output receives a short description of what happened.
    static bool UpdateModuleUnzip(std::string archive, std::list<std::string>* fileList,
                                  std::string folder, std::string* output,
                                  std::string traceFile);
    // Removes the folder recursively; a missing folder is success.
    static bool DeleteFolder(std::string folder, std::string traceFile);
};
