// What an embedder shows its plug-in, as plain data, and what happens to the plug-in then.
//
// In JSON (docs/embedder.md) every key may be left out; the values below are what counts then.
//
// Threads: plain values, no locking.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cw/encodable_value.h"

namespace desk {

struct Theme {
  bool flag = false;
  std::array<uint32_t, 4> values{};
  std::array<std::string, 4> texts;

  bool operator==(const Theme& other) const {
    return flag == other.flag && values == other.values && texts == other.texts;
  }
};

enum Visibility : uint32_t {
  kVisibilityNormal = 1,
  kVisibilityMaximized = 2,
  kVisibilityFullscreen = 3,
  kVisibilityMinimized = 4,
  kVisibilityHidden = 5,
};

// The state of the window.
struct View {
  uint32_t visibility = kVisibilityNormal;
  uint32_t orientation = 0;  // In degrees, as the next.
  uint32_t device_orientation = 0;
  uint32_t width = 720;  // In pixels, as the next.
  uint32_t height = 1440;
  double pixel_ratio = 2;
  bool keyboard = false;
  uint32_t statusbar = 0;  // The wanted visibility, 0 to 2.
  bool statusbar_visible = true;
  bool background_visible = true;
  uint32_t type = 1;  // 1 to 3.
  Theme theme;
};

struct WindowResult {
  cw::EncodableValue value;
  std::optional<std::string> text;
};

// What the Dart side answers to a message.
struct Answer {
  enum Kind { kValue, kSuccess, kError, kNotImplemented, kBytes };
  Kind kind = kValue;
  cw::EncodableValue value;  // The value, the result, or the error's details.
  std::vector<uint8_t> bytes;
  std::string code;  // Of an error, as the next.
  std::string message;
};

// Empty for "not implemented".
std::vector<uint8_t> Encode(const Answer& answer);

constexpr uint32_t kLibraries = 1;  // The kind of directory where the libraries are.

// In bytes as on this machine; none: the whole structure. A larger one plays a newer embedder, of
// which the plug-in does not know all.
constexpr uint32_t kMaxDeclared = 4096;
struct DeclaredSizes {
  std::optional<uint32_t> context;
  std::optional<uint32_t> application;
  std::optional<uint32_t> view;
  std::optional<uint32_t> texture;
  std::optional<uint32_t> messenger;
};

// One thing that the Dart side or the user does.
struct Step {
  enum Kind { kMessage, kExpect, kWait, kView, kListen, kCease, kDestroyEngine, kExit };
  Kind kind = kExit;
  std::string channel;
  // A message: a method call, or bytes, or else the value. Of one that is expected the value counts
  // only where it is there.
  std::optional<std::string> method;
  std::optional<std::vector<uint8_t>> bytes;
  std::optional<cw::EncodableValue> value;  // The message's, or the method's arguments.
  std::optional<uint32_t> timeout;          // In milliseconds, as the next.
  uint32_t pause = 0;
  Answer answer;
  std::string changes;  // Of the view, as a JSON object.
  int exit_code = 0;
};

struct Description {
  std::map<uint32_t, std::string> information = {{1, "tavo-embed"}, {2, "org.example"}};
  std::map<uint32_t, std::string> directories;
  std::vector<std::string> arguments;
  std::vector<std::string> permissions;
  std::array<uint32_t, 4> os_version = {{1, 0, 0, 0}};
  std::array<uint32_t, 3> embedder_version = {{1, 0, 0}};
  View view;
  cw::EncodableValue payload;
  WindowResult main_window_result;
  WindowResult popup_window_result;
  DeclaredSizes declared_sizes;
  std::map<std::string, Answer> channels;  // Answered so where nobody listens.
  std::vector<Step> steps;
  bool render_thread = false;  // Frames of textures are asked for on a thread of their own.
};

// The declared size of a structure ("context", "application", ...); null: there is no such one.
std::optional<uint32_t>* FindDeclaredSize(DeclaredSizes& sizes, const std::string& structure);

// The size of a structure as a whole; 0: there is no such one.
uint32_t GetWholeSize(const std::string& structure);

// Throws std::runtime_error: with line and column for what is no JSON, else with the JSON pointer
// to what is wrong.
Description ParseDescription(const std::string& text);

// Sets what the JSON object tells. Throws as ParseDescription does, and has changed nothing then.
void ChangeView(const std::string& changes, View* view);

// The description in JSON, indented; ParseDescription reads it. What the embedder offers by it
// (offer.h) is added under the key "offered", for people to see; reading ignores that one.
std::string ToText(const Description& description);

}  // namespace desk
