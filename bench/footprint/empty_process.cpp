// What a process weighs that uses jsoncpp and nothing of this library: the measure for idle_endpoint.

#include <json/value.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int main() {
  Json::Value value;
  value["idle"] = true;
  std::puts(value.toStyledString().c_str());
  std::fflush(stdout);
  pause();
}
