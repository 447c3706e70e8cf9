#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace VrelHost {

struct VolumeConfig {
  std::string name;
  std::string engine;
  Json::Value settings;  // the whole object of the volume; its engine knows the other members
};

// What the configuration file says.
struct Config {
  std::string file;       // where it was read from
  std::string state_dir;  // absolute
  std::vector<VolumeConfig> volumes;
  std::vector<Json::Value> nodes;        // the other ones; objects with a unique text "id"
  std::vector<Json::Value> credentials;  // objects with a unique text "id"
};

// The file that VRELDR_CONFIG names, else /etc/vreldr/vreldr.json.
std::string ConfigPath();

// Reads the configuration afresh. On a failure returns false, with one line in `problem` that names
// the file, what is wrong with it and what to do.
//
// The file is one JSON object: "state_dir" (an absolute path; /var/lib/vreldr when it is left out),
// "volumes" (objects with a unique "name", an "engine" and what that engine asks for), "nodes" and
// "credentials" (objects with a unique "id" each). A member of another name is refused, so that a
// misspelt one is not silently without effect.
bool ReadConfig(Config& config, std::string& problem);

}  // namespace VrelHost
