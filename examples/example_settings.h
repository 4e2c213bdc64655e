// What the arguments of all examples mean: DIRECTORY for the files, LBS-URL for the server to ask.
#pragma once

#include <tarvel/client.h>

#include <cstdio>
#include <optional>
#include <string>
#include <utility>

inline tarvel::Settings ExampleSettings(int argc, char** argv) {
  tarvel::Settings settings;
  settings.token = "application key";
  settings.business = "demo";
  settings.directory = argc > 1 ? argv[1] : "/tmp/tarvel-demo";
  settings.lbs_url = argc > 2 ? argv[2] : "https://lbs.example/lbs/conf.jsp";
  settings.default_link = "link.example:8080";
  return settings;
}

inline std::optional<tarvel::Client> StartExample(tarvel::Settings settings) {
  std::string error;
  auto client = tarvel::Client::Start(std::move(settings), error);
  if (!client) std::fprintf(stderr, "%s\n", error.c_str());
  return client;
}
