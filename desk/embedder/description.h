// The description of an embedder as plain data: what the embedder shows its plug-in, and which
// steps it takes afterwards.
//
//   desk::Description description = desk::ParseDescription(text);
//   description.view.width = 1920;
//   desk::Embedder embedder(std::move(description));
//
// In JSON (docs/embedder.md) every key may be left out. The initial values below are the values of
// the keys that are left out.
//
// Threads: plain values, no locking.
// Errors:  reading JSON throws std::runtime_error, as ParseDescription tells.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cw/encodable_value.h"

namespace desk {

// The appearance that the embedder asks for. The meaning of the values and texts is free.
struct Theme {
  bool flag = false;
  std::array<uint32_t, 4> values{};
  std::array<std::string, 4> texts;

  bool operator==(const Theme& other) const {
    return flag == other.flag && values == other.values && texts == other.texts;
  }
};

// The visibilities of a window, as View::visibility has them.
enum Visibility : uint32_t {
  kVisibilityNormal = 1,
  kVisibilityMaximized = 2,
  kVisibilityFullscreen = 3,
  kVisibilityMinimized = 4,
  kVisibilityHidden = 5,
};

// The state of the window and of the device, which the plug-in asks for and subscribes to.
struct View {
  uint32_t visibility = kVisibilityNormal;
  uint32_t orientation = 0;         // In degrees: 0, 90, 180 or 270.
  uint32_t device_orientation = 0;  // In degrees: 0, 90, 180 or 270.
  uint32_t width = 720;             // In pixels.
  uint32_t height = 1440;           // In pixels.
  double pixel_ratio = 2;           // Device pixels per logical pixel, 0.1 to 1000.
  bool keyboard = false;            // Whether the on-screen keyboard is shown.
  uint32_t statusbar = 0;           // The visibility that the application asks for, 0 to 2.
  bool statusbar_visible = true;
  bool background_visible = true;
  uint32_t type = 1;  // 1 to 3.
  Theme theme;
};

// The answer of a window that the plug-in has opened.
struct WindowResult {
  cw::EncodableValue value;
  std::optional<std::string> text;  // Empty: the answer has no text.
};

// The answer of the Dart side to a message. `kind` tells which of the other members count.
struct Answer {
  enum Kind { kValue, kSuccess, kError, kNotImplemented, kBytes };
  Kind kind = kValue;
  cw::EncodableValue value;    // Of a value, a success (the result) and an error (the details).
  std::vector<uint8_t> bytes;  // Of kBytes.
  std::string code;            // Of an error.
  std::string message;         // Of an error.
};

// Returns the bytes of the answer. No bytes mean "not implemented".
std::vector<uint8_t> Encode(const Answer& answer);

// The kind of the directory of the application's libraries.
constexpr uint32_t kLibraries = 1;

// The largest declared size that a description may have.
constexpr uint32_t kMaxDeclared = 4096;

// The declared sizes of the context and the tables, in bytes as on this machine. An empty one is
// the size of the whole structure. A smaller one stands for an older embedder, a larger one for a
// newer embedder, of which the plug-in knows only a part.
struct DeclaredSizes {
  std::optional<uint32_t> context;
  std::optional<uint32_t> application;
  std::optional<uint32_t> view;
  std::optional<uint32_t> texture;
  std::optional<uint32_t> messenger;
};

// One action of the Dart side or of the user. `kind` tells which of the other members count.
struct Step {
  enum Kind { kMessage, kExpect, kWait, kView, kListen, kCease, kDestroyEngine, kExit };
  Kind kind = kExit;
  std::string channel;  // Of kMessage, kExpect, kListen and kCease; never empty there.

  // The message of kMessage: a method call, or bytes, or otherwise the value. The message of
  // kExpect: only the members that are there are compared.
  std::optional<std::string> method;
  std::optional<std::vector<uint8_t>> bytes;
  std::optional<cw::EncodableValue> value;  // The message's value, or the method's arguments.

  // The time limit of kMessage and kExpect, in milliseconds. Empty: kMessage waits without a limit,
  // kExpect waits for 5 seconds.
  std::optional<uint32_t> timeout;

  uint32_t pause = 0;   // Of kWait, in milliseconds.
  Answer answer;        // Of kListen: the answer to each message.
  std::string changes;  // Of kView: the members to change, as a JSON object.
  int exit_code = 0;    // Of kExit, 0 to 255.
};

// Everything that an embedder offers, and its steps.
struct Description {
  // The texts and directories of the application, by their kinds, and the arguments of its Dart
  // entry point.
  std::map<uint32_t, std::string> information = {{1, "tavo-embed"}, {2, "org.example"}};
  std::map<uint32_t, std::string> directories;
  std::vector<std::string> arguments;

  std::vector<std::string> permissions;
  std::array<uint32_t, 4> os_version = {{1, 0, 0, 0}};
  std::array<uint32_t, 3> embedder_version = {{1, 0, 0}};
  View view;
  cw::EncodableValue payload;  // What the window was opened with.
  WindowResult main_window_result;
  WindowResult popup_window_result;
  DeclaredSizes declared_sizes;
  std::map<std::string, Answer> channels;  // The answers on channels without a listener.
  std::vector<Step> steps;
  bool render_thread = false;  // Whether frames of textures are asked for on a thread of their own.
};

// Returns the declared size of a structure ("context", "application", "view", "texture" or
// "messenger"), which may be changed. Null: there is no such structure.
std::optional<uint32_t>* FindDeclaredSize(DeclaredSizes& sizes, const std::string& structure);

// Returns the size of the whole structure of that name. 0: there is no such structure.
uint32_t GetWholeSize(const std::string& structure);

// Reads a description. Throws std::runtime_error. Its text has the line and the column of what is
// no JSON, or the JSON pointer of a value that is wrong, out of its range or unknown.
Description ParseDescription(const std::string& text);

// Sets the members of the view that the JSON object has. Throws as ParseDescription does, and
// changes nothing then.
void ChangeView(const std::string& changes, View* view);

// Returns the description in JSON, indented; ParseDescription reads it. The entries that the
// embedder offers (offer.h) are added under the key "offered", for people to read; ParseDescription
// ignores that key.
std::string ToText(const Description& description);

}  // namespace desk
