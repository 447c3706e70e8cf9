#include "content.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>

#include "tree.h"

namespace torture {

namespace fs = std::filesystem;

namespace {

std::string Bytes(int version, int number, std::size_t count) {
  std::mt19937 random(static_cast<unsigned>(version) * 1000U + static_cast<unsigned>(number));
  std::string bytes(count, '\0');
  for (std::size_t at = 0; at + 4 <= count; at += 4) {
    const auto value = static_cast<std::uint32_t>(random());
    std::memcpy(&bytes[at], &value, 4);
  }
  return bytes;
}

// The files of a share by their names.
std::map<std::string, std::string> FilesOf(int version) {
  std::map<std::string, std::string> files;
  if (version == 0) return files;
  const std::string text = std::to_string(version);
  files["version"] = text;
  files["small"] = "this is version " + text;
  files["in place"] = Bytes(version, 1, 30000);
  files["folder " + std::to_string(version % 3) + "/below/file"] = Bytes(version, 2, 9000);
  files["new in " + text] = Bytes(version, 3, 100 + static_cast<std::size_t>(version % 7) * 5000);
  if (version % 4 == 0) files["now and then"] = Bytes(version, 4, 150000);
  return files;
}

// A disk of which some blocks are written.
std::string DiskOf(int version) {
  std::string disk(kLunSize, '\0');
  if (version == 0) return disk;
  const std::string text = std::to_string(version) + "\n";
  disk.replace(0, text.size(), text);
  for (int at = 0; at < 6; ++at) {
    const auto block = static_cast<std::size_t>(version * 7 + at * 37) % 250 + 1;
    disk.replace(block * 4096, 4096, Bytes(version, at, 4096));
  }
  return disk;
}

std::string WriteDisk(const std::string& path, int version) {
  const std::string disk = DiskOf(version);
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.write(disk.data(), static_cast<std::streamsize>(disk.size()));
  file.close();
  return file ? "" : "cannot write " + path + ": " + std::strerror(errno);
}

// Tells two damaged states from each other: copies of one are equal.
std::string Mark(const std::string& bytes) {
  return " #" + std::to_string(std::hash<std::string>()(bytes));
}

std::string DiskAt(const std::string& path) {
  const std::string bytes = host_test::ReadFile(path);
  const std::string name = "v" + std::to_string(std::atoi(bytes.c_str()));
  const bool isWhole = bytes == DiskOf(std::atoi(bytes.c_str()));
  return isWhole ? name : "damaged " + name + ": other bytes" + Mark(bytes);
}

std::string FolderAt(const std::string& path) {
  const int version = std::atoi(host_test::ReadFile(path + "/version").c_str());
  const std::string name = "v" + std::to_string(version);
  std::map<std::string, std::string> found;  // in an order that all file systems have
  for (const auto& each : fs::recursive_directory_iterator(path)) {
    if (each.is_directory()) continue;
    found[fs::path(each).lexically_relative(path)] = host_test::ReadFile(each.path());
  }
  const auto wanted = FilesOf(version);
  if (found == wanted) return name;
  std::string damage;
  std::string all;
  for (const auto& [file, bytes] : found) {
    all += file + '\n' + bytes + '\n';
    const auto should = wanted.find(file);
    if (should == wanted.end()) {
      damage += ", too much: " + file;
    } else if (bytes != should->second) {
      damage += ", other bytes in " + file + " (" + std::to_string(bytes.size()) + " of " +
                std::to_string(should->second.size()) + ")";
    }
  }
  for (const auto& [file, bytes] : wanted) {
    if (found.count(file) == 0) damage += ", lacks " + file;
  }
  return "damaged " + name + ": " + damage.substr(2) + Mark(all);
}

}  // namespace

std::string WriteVersion(const std::string& path, int version) {
  std::error_code error;
  if (!fs::is_directory(path, error)) return WriteDisk(path, version);
  const auto files = FilesOf(version);
  for (const auto& each : fs::directory_iterator(path, error)) {
    // Files that stay are written in place.
    if (files.count(each.path().filename()) == 0) fs::remove_all(each, error);
  }
  for (const auto& [name, bytes] : files) {
    const std::string file = path + "/" + name;
    fs::create_directories(fs::path(file).parent_path(), error);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << bytes;
    out.close();
    if (!out) return "cannot write " + file + ": " + std::strerror(errno);
  }
  return error ? "cannot write below " + path + ": " + error.message() : "";
}

std::string VersionAt(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) return "not there: " + path;
  try {
    return fs::is_directory(status) ? FolderAt(path) : DiskAt(path);
  } catch (const fs::filesystem_error& failure) {
    return std::string("unreadable: ") + failure.what();
  }
}

}  // namespace torture
