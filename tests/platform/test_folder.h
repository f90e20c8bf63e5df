// The folder of this test program's files, and helpers to read logs in it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// A folder whose name is not ASCII, made by main() and handed on to child processes through the
// environment; removed when the program that made it ends.
const std::filesystem::path &TestFolder();

// The file that VELTO_LOG_FILE names in this process and in its children.
std::filesystem::path SharedLogFile();

// A path in the test folder that no other test uses.
std::filesystem::path FreshPath(const std::string &name);

// The name that a log file has after it was rotated out `age` times.
std::filesystem::path OldPath(const std::filesystem::path &path, int age);

// The lines of a file, without their ends; none when the file cannot be read.
std::vector<std::string> ReadLines(const std::filesystem::path &path);

// How many lines contain `text`.
int CountLinesWith(const std::filesystem::path &path, const std::string &text);

// A log line without its time stamp and thread id, which begin it; empty when they do not.
std::string AfterTimeAndThread(const std::string &line);

// Sets a variable of this process's environment; an empty value removes it.
void SetEnvironment(const std::string &name, const std::filesystem::path &value);
std::filesystem::path GetEnvironment(const std::string &name);
