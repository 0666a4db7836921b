#include "tools/fake_launcher/behaviour.h"

#include <tksinterface/TKSMessageVocabulary.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "foundation/values/JsonWriter.h"
#include "messaging/Frame.h"

namespace tks::fake {
namespace {

using Kind = Step::Kind;

constexpr double kLongestWait = 3600;
constexpr int kMostUpdates = 4;
constexpr int kLargestSignal = 64;

[[noreturn]] void refuse(const std::string& place, const std::string& what) {
  throw std::invalid_argument(place.empty() ? what : place + ": " + what);
}

double numberIn(const TKSValue& value, const std::string& place, double least, double most) {
  const bool isInside = value.isNumber() && !value.isBoolean() && value.real() >= least && value.real() <= most;
  if (!isInside) {
    refuse(place, "it takes a number from " + TKSValue(least).description() + " to " + TKSValue(most).description());
  }
  return value.real();
}

int wholeNumberIn(const TKSValue& value, const std::string& place, int least, int most) {
  const double number = numberIn(value, place, least, most);
  if (number != std::floor(number)) refuse(place, "it takes a whole number");
  return static_cast<int>(number);
}

std::string textIn(const TKSValue& value, const std::string& place) {
  if (!value.isText()) refuse(place, "it takes a text");
  return std::string(value.text());
}

/// The frame around a payload: an object or array as JSON, a text as it is.
std::string frameOf(const TKSValue& payload, const std::string& place) {
  std::string frame;
  messaging::beginFrame(frame);
  if (payload.isText()) {
    frame.append(payload.text());
  } else if (!json::append(payload, frame, nullptr)) {
    refuse(place, "it takes an object or a text");
  }
  messaging::finishFrame(frame);
  return frame;
}

void readNothing(Step&, const TKSValue&, const TKSValue&, const std::string&) {}

void readWait(Step& step, const TKSValue& value, const TKSValue&, const std::string& place) {
  step.seconds = numberIn(value, place, 0, kLongestWait);
}

void readSend(Step& step, const TKSValue& value, const TKSValue& body, const std::string& place) {
  step.message.messageType = textIn(value, place);
  step.message.message = body.isNothing() ? value : body;
  if (!step.message.message.isText() && !step.message.message.isDictionary()) {
    refuse(place, "the body is a text or an object; send others with \"frame\"");
  }
}

void readError(Step& step, const TKSValue& value, const TKSValue& text, const std::string& place) {
  step.message.messageType = std::string(tks_message_type_error);
  TKSDictionary body{{tks_message_key_error_code, textIn(value, place)}};
  if (!text.isNothing()) body.set(tks_message_key_error_message, textIn(text, place));
  step.message.message = body;
}

void readFrame(Step& step, const TKSValue& value, const TKSValue&, const std::string& place) {
  step.bytes = frameOf(value, place);
}

void readHalf(Step& step, const TKSValue& value, const TKSValue& bytes, const std::string& place) {
  step.bytes = frameOf(value, place);
  const int whole = static_cast<int>(step.bytes.size());
  const int half = static_cast<int>(messaging::kHeaderBytes) + (whole - static_cast<int>(messaging::kHeaderBytes)) / 2;
  const int kept = bytes.isNothing() ? half : wholeNumberIn(bytes, place, 0, whole);
  step.bytes.resize(static_cast<std::size_t>(kept));
}

void readPrint(Step& step, const TKSValue& value, const TKSValue&, const std::string& place) {
  step.bytes = textIn(value, place);
}

int digitOf(char letter) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const char lower = letter >= 'A' && letter <= 'F' ? static_cast<char>(letter + 32) : letter;
  const std::size_t at = kDigits.find(lower);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

void readHex(Step& step, const TKSValue& value, const TKSValue&, const std::string& place) {
  std::string digits = textIn(value, place);
  std::erase(digits, ' ');
  const bool areDigits = std::ranges::all_of(digits, [](char letter) { return digitOf(letter) >= 0; });
  if (!areDigits || digits.size() % 2 != 0) refuse(place, "it takes pairs of hexadecimal digits");
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    step.bytes.push_back(static_cast<char>(16 * digitOf(digits[at]) + digitOf(digits[at + 1])));
  }
}

void readExit(Step& step, const TKSValue& value, const TKSValue&, const std::string& place) {
  step.number = wholeNumberIn(value, place, 0, 255);
}

void readSignal(Step& step, const TKSValue& value, const TKSValue&, const std::string& place) {
  step.number = wholeNumberIn(value, place, 1, kLargestSignal);
}

/// A way to write a step: a word alone, or an object with the word as a member and perhaps one more.
struct Word {
  std::string_view name;
  Kind kind;
  bool hasValue;
  /// The member that may stand beside it.
  std::string_view also;
  void (*read)(Step& step, const TKSValue& value, const TKSValue& also, const std::string& place);
};

constexpr Word kWords[] = {
    {"answer", Kind::answer, false, "", readNothing}, {"silence", Kind::silence, false, "", readNothing},
    {"update", Kind::update, false, "", readNothing}, {"wait", Kind::wait, true, "", readWait},
    {"send", Kind::send, true, "body", readSend},     {"error", Kind::send, true, "text", readError},
    {"frame", Kind::raw, true, "", readFrame},        {"half", Kind::raw, true, "bytes", readHalf},
    {"print", Kind::raw, true, "", readPrint},        {"hex", Kind::raw, true, "", readHex},
    {"exit", Kind::exit, true, "", readExit},         {"signal", Kind::signal, true, "", readSignal},
};

std::string allWords() {
  std::string words;
  for (const Word& word : kWords) {
    words.append(words.empty() ? "" : ", ").append(word.hasValue ? "{\"" : "\"").append(word.name);
    words.append(word.hasValue ? "\": ...}" : "\"");
  }
  return words;
}

const Word& wordFor(const TKSValue& step, const std::string& place) {
  for (const Word& word : kWords) {
    if (word.hasValue ? step[word.name].kind() != TKSValue::Kind::nothing : step.text() == word.name) return word;
  }
  const std::string named = step.isText() ? " \"" + std::string(step.text()) + "\"" : "";
  refuse(place, "there is no step" + named + "; steps are " + allWords());
}

Step stepIn(const TKSValue& value, const std::string& place) {
  if (!value.isText() && !value.isDictionary()) refuse(place, "a step is a text or an object");
  const Word& word = wordFor(value, place);
  for (const auto& [key, ignored] : value.dictionary()) {
    if (key != word.name && key != word.also) {
      refuse(place, "\"" + std::string(key) + "\" does not belong to \"" + std::string(word.name) + "\"");
    }
  }
  Step step;
  step.kind = word.kind;
  word.read(step, value[word.name], word.also.empty() ? TKSValue() : value[word.also], place);
  return step;
}

Steps stepsIn(const TKSValue& value, const std::string& place) {
  if (!value.isArray()) refuse(place, "it takes an array of steps");
  Steps steps;
  for (const TKSValue& each : value.array()) {
    steps.push_back(stepIn(each, place + "[" + std::to_string(steps.size()) + "]"));
  }
  return steps;
}

/// Steps for every message of a type, or an array of them for the first, the second and so on.
std::vector<Steps> turnsIn(const TKSValue& value, const std::string& place) {
  if (value.isArray() && value[0].isArray()) {
    std::vector<Steps> turns;
    for (const TKSValue& each : value.array()) {
      turns.push_back(stepsIn(each, place + "[" + std::to_string(turns.size()) + "]"));
    }
    return turns;
  }
  return {stepsIn(value, place)};
}

bool updates(const Steps& steps) { return std::ranges::find(steps, Kind::update, &Step::kind) != steps.end(); }

bool updates(const Behaviour& behaviour) {
  bool found = updates(behaviour.start) || updates(behaviour.end);
  for (const auto& [type, turns] : behaviour.on) {
    for (const Steps& steps : turns) found = found || updates(steps);
  }
  return found;
}

Behaviour behaviourIn(const TKSValue& script, const std::string& place, int depth) {
  const std::string begin = place.empty() ? "" : place + ".";
  if (!script.isDictionary()) refuse(place, "a behaviour is a JSON object");
  if (depth > kMostUpdates) refuse(place, "at most " + std::to_string(kMostUpdates) + " updates in a row");
  Behaviour behaviour;
  for (const auto& [key, value] : script.dictionary()) {
    const std::string here = begin + std::string(key);
    if (key == "version") {
      behaviour.version = textIn(value, here);
    } else if (key == "start") {
      behaviour.start = stepsIn(value, here);
    } else if (key == "end") {
      behaviour.end = stepsIn(value, here);
    } else if (key == "on") {
      if (!value.isDictionary()) refuse(here, "it takes an object with types of messages as names");
      for (const auto& [type, steps] : value.dictionary()) {
        behaviour.on[std::string(type)] = turnsIn(steps, here + "." + std::string(type));
      }
    } else if (key == "update") {
      behaviourIn(value, here, depth + 1);
      behaviour.update = value.dictionary();
    } else {
      refuse(here, "it is unknown; known are version, start, on, end and update");
    }
  }
  if (updates(behaviour) && !behaviour.update)
    refuse(begin + "update", "a step says \"update\", but to what is missing");
  return behaviour;
}

}  // namespace

std::optional<Behaviour> readBehaviour(const TKSValue& script, std::string& problem) {
  try {
    return behaviourIn(script, "", 0);
  } catch (const std::invalid_argument& wrong) {
    problem = wrong.what();
    return std::nullopt;
  }
}

}  // namespace tks::fake
