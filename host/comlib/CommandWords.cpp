#include "CommandWords.h"

#include <algorithm>
#include <cstring>

namespace qdmhost {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Every other byte (quotes, $, `, ;, |, &, <, >, globs, ~, braces, brackets,
// parentheses, #, !, % (a job in bash), backslash, newline, control and
// non-ASCII bytes) means something to some shell, so it sends the line there.
bool IsLiteralChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("_-./:,+@=", c) != nullptr;
}

// Words the shell runs itself rather than looking up a program.
bool IsShellWord(const std::string& word) {
    static const char* const kWords[] = {
        // keywords
        "case", "coproc", "do", "done", "elif", "else", "esac", "fi", "for", "function", "if", "in", "select", "then",
        "time", "until", "while",
        // built-ins of dash and bash
        ".", ":", "alias", "bg", "bind", "break", "builtin", "cd", "chdir", "command", "continue", "declare", "echo",
        "enable", "eval", "exec", "exit", "export", "false", "fc", "fg", "getopts", "hash", "help", "history", "jobs",
        "kill", "let", "local", "logout", "printf", "pwd", "read", "readonly", "return", "set", "shift", "source",
        "test", "times", "trap", "true", "type", "typeset", "ulimit", "umask", "unalias", "unset", "wait"};
    return std::any_of(std::begin(kWords), std::end(kWords), [&](const char* shellWord) { return word == shellWord; });
}

}  // namespace

std::vector<std::string> PlainCommandWords(const std::string& line) {
    std::vector<std::string> words;
    for (std::size_t at = 0; at < line.size();) {
        if (IsBlank(line[at])) {
            ++at;
            continue;
        }
        std::size_t end = at;
        for (; end < line.size() && !IsBlank(line[end]); ++end)
            if (!IsLiteralChar(line[end])) return {};
        words.push_back(line.substr(at, end - at));
        at = end;
    }
    if (words.empty() || words[0].find('=') != std::string::npos || IsShellWord(words[0])) return {};
    return words;
}

}  // namespace qdmhost
