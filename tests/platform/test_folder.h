// The folder for the files of this test program, and helpers that read logs in it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Created by main() and removed when the program ends. Child processes get its path through the environment.
const std::filesystem::path &TestFolder();

// The file that VELTO_LOG_FILE names in this process and in its children.
std::filesystem::path SharedLogFile();

// A path in the test folder that no other test uses.
std::filesystem::path FreshPath(const std::string &name);

// The name of a log file after `age` rotations.
std::filesystem::path OldPath(const std::filesystem::path &path, int age);

// The line ending of log files on this system.
#ifdef _WIN32
constexpr const char *lineEnding = "\r\n";
#else
constexpr const char *lineEnding = "\n";
#endif

// The lines of a file, without their line endings; empty if the file cannot be read.
std::vector<std::string> ReadLines(const std::filesystem::path &path);

// All bytes of a file, including line endings; empty if the file cannot be read.
std::string ReadBytes(const std::filesystem::path &path);

// Number of lines that contain `text`.
int CountLinesWith(const std::filesystem::path &path, const std::string &text);

// Returns a log line without the time and thread id at its start; empty if the line does not start with both.
std::string AfterTimeAndThread(const std::string &line);
