#include "GPUImage/Private/ShaderStage.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <optional>
#include <set>

namespace tavrel {
namespace {

constexpr std::array<std::string_view, 7> kUnsupported = {
    "#", "discard", "gl_FragCoord", "gl_FragData", "gl_PointCoord", "gl_FrontFacing", "struct"};

bool isNameCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.'; }

/// Names and numbers whole, everything else character by character, without blanks. A swizzle such as ".rgb" is a token
/// of its own, so that it is no name.
std::vector<std::string_view> tokensOf(std::string_view source) {
  std::vector<std::string_view> tokens;
  for (std::size_t i = 0; i < source.size();) {
    if (std::isspace(static_cast<unsigned char>(source[i]))) {
      ++i;
      continue;
    }
    std::size_t end = i + 1;
    const bool isNumber = std::isdigit(static_cast<unsigned char>(source[i]));
    while (isNameCharacter(source[i]) && end < source.size() && isNameCharacter(source[end]) &&
           (isNumber || source[end] != '.')) {
      ++end;
    }
    // An exponent's sign.
    if (isNumber && (source[end - 1] == 'e' || source[end - 1] == 'E') && end < source.size()) {
      for (++end; end < source.size() && std::isdigit(static_cast<unsigned char>(source[end]));) ++end;
    }
    tokens.push_back(source.substr(i, end - i));
    i = end;
  }
  return tokens;
}

bool isName(std::string_view token) { return std::isalpha(static_cast<unsigned char>(token[0])) || token[0] == '_'; }

bool isInput(std::string_view name) { return name == "inputImageTexture" || name == "inputImageTexture2"; }
bool isPlace(std::string_view name) { return name == "textureCoordinate" || name == "textureCoordinate2"; }

using Tokens = std::vector<std::string_view>;

/// A declaration outside of all functions: of variables, up to its semicolon, or of a function with its body.
struct Declaration {
  Tokens tokens;
  std::vector<std::string_view> names;

  bool begins(std::string_view keyword) const { return tokens.front() == keyword; }
  bool isSampler() const {
    return std::ranges::any_of(tokens, [](std::string_view token) { return token.starts_with("sampler"); });
  }
  bool isOfInputs() const { return begins("uniform") && isSampler() && std::ranges::all_of(names, isInput); }
};

std::vector<Declaration> declarationsOf(const Tokens& tokens) {
  std::vector<Declaration> declarations;
  Declaration current;
  int depth = 0;
  bool isNamed = false;
  std::string_view last;
  for (const std::string_view token : tokens) {
    current.tokens.push_back(token);
    const bool endsName = token == ";" || token == "=" || token == "[" || token == "(" || token == ",";
    if (depth == 0 && endsName && !isNamed && !last.empty()) {
      current.names.push_back(last);
      isNamed = true;
    }
    if (depth == 0 && token == ",") isNamed = false;
    if (depth == 0 && isName(token)) last = token;
    if (token == "(" || token == "{" || token == "[") ++depth;
    if (token == ")" || token == "}" || token == "]") --depth;
    if (depth > 0 || (token != ";" && token != "}")) continue;
    declarations.push_back(std::move(current));
    current = {};
    isNamed = false;
    last = {};
  }
  return declarations;
}

/// Whether the input is sampled at its own place from `tokens[at]` on.
std::size_t lengthOfOwnSample(const Tokens& tokens, std::size_t at) {
  constexpr std::array<std::string_view, 6> kSample = {"texture2D",         "(", "inputImageTexture", ",",
                                                       "textureCoordinate", ")"};
  return at + kSample.size() <= tokens.size() &&
                 std::equal(kSample.begin(), kSample.end(), tokens.begin() + static_cast<std::ptrdiff_t>(at))
             ? kSample.size()
             : 0;
}

std::string withoutComments(const std::string& shader) {
  std::string text;
  for (std::size_t i = 0; i < shader.size();) {
    const std::string_view rest = std::string_view(shader).substr(i);
    const bool isLine = rest.starts_with("//");
    if (!isLine && !rest.starts_with("/*")) {
      text += shader[i++];
      continue;
    }
    text += ' ';
    const std::size_t end = rest.find(isLine ? "\n" : "*/", 2);
    i = end == std::string_view::npos ? shader.size() : i + end + (isLine ? 0 : 2);
  }
  return text;
}

std::optional<ShaderStage> stageOf(const std::string& source) {
  const std::string shader = withoutComments(source);
  const Tokens tokens = tokensOf(shader);
  if (std::ranges::find_first_of(tokens, kUnsupported) != tokens.end()) return std::nullopt;
  const std::vector<Declaration> declarations = declarationsOf(tokens);
  ShaderStage stage;
  std::set<std::string_view> globals = {"inputImageTexture", "inputImageTexture2", "textureCoordinate",
                                        "textureCoordinate2"};
  for (const Declaration& declaration : declarations) {
    globals.insert(declaration.names.begin(), declaration.names.end());
    if (declaration.begins("attribute") || declaration.begins("invariant")) return std::nullopt;
    if (declaration.begins("varying") && !std::ranges::all_of(declaration.names, isPlace)) return std::nullopt;
    if (!declaration.begins("uniform") || declaration.isOfInputs()) continue;
    // Inputs are declared outside.
    if (std::ranges::any_of(declaration.names, isInput)) return std::nullopt;
    auto& names = declaration.isSampler() ? stage.tables : stage.uniforms;
    names.insert(names.end(), declaration.names.begin(), declaration.names.end());
  }

  for (const Declaration& declaration : declarations) {
    if (declaration.begins("varying") || declaration.isOfInputs()) continue;
    for (std::size_t i = 0; i < declaration.tokens.size(); ++i) {
      const std::string_view token = declaration.tokens[i];
      if (const std::size_t length = lengthOfOwnSample(declaration.tokens, i)) {
        stage.text += std::string("before") + ShaderStage::kNumber + ' ';
        i += length - 1;
        continue;
      }
      stage.usesPlace = stage.usesPlace || token == "textureCoordinate";
      stage.readsAround = stage.readsAround || token == "inputImageTexture";
      stage.hasSecondInput = stage.hasSecondInput || token == "inputImageTexture2";
      stage.usesSecondPlace = stage.usesSecondPlace || token == "textureCoordinate2";
      stage.text += token == "gl_FragColor" ? "after" : token;
      if (token == "gl_FragColor" || globals.contains(token)) stage.text += ShaderStage::kNumber;
      // Operators of two characters stay whole.
      const bool isOperator = !isNameCharacter(token[0]);
      const bool isNextOperator = i + 1 < declaration.tokens.size() && !isNameCharacter(declaration.tokens[i + 1][0]);
      if (!isOperator || !isNextOperator || &token[1] != declaration.tokens[i + 1].data()) stage.text += ' ';
    }
  }
  return stage;
}

}  // namespace

std::shared_ptr<const ShaderStage> ShaderStage::of(const std::string& fragmentShader) {
  static auto* const known = new std::map<std::string, std::shared_ptr<const ShaderStage>>;
  const auto [entry, isNew] = known->try_emplace(fragmentShader);
  if (!isNew) return entry->second;
  if (auto stage = stageOf(fragmentShader)) {
    stage->identifier = static_cast<int>(known->size());
    entry->second = std::make_shared<const ShaderStage>(std::move(*stage));
  }
  return entry->second;
}

}  // namespace tavrel
