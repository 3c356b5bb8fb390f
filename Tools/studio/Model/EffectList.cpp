#include "Model/EffectList.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tavrel::studio {
namespace {

nlohmann::json placeJSON(const StickerPlace& place) {
  const Rect& r = place.rectangle;
  return {r.origin.x, r.origin.y, r.size.width, r.size.height, place.radians};
}

StickerPlace placeOf(const nlohmann::json& json) {
  return {{{json.at(0), json.at(1)}, {json.at(2), json.at(3)}}, json.at(4)};
}

Expected<std::shared_ptr<StudioEffect>> opened(const nlohmann::json& json) {
  const std::string kind = json.at("kind");
  if (kind == "beauty") return makeBeauty();
  if (kind == "blur") return makeBlur();
  const std::filesystem::path file = json.at("file").get<std::string>();
  if (kind == "table") return openTable(file);
  return StickerEffect::open(file).map([](auto sticker) -> std::shared_ptr<StudioEffect> { return sticker; });
}

}  // namespace

TavrelCaptureEffectChain::Effects EffectList::captureEffects() const {
  TavrelCaptureEffectChain::Effects effects;
  for (const auto& effect : all_) {
    if (effect->isOn()) effects.push_back(effect->captureEffect());
  }
  return effects;
}

EffectList::Effects EffectList::placedEffects() const {
  Effects placed;
  std::ranges::copy_if(all_, std::back_inserter(placed),
                       [](const auto& effect) { return effect->isOn() && effect->place(); });
  return placed;
}

void EffectList::add(std::shared_ptr<StudioEffect> effect) {
  all_.push_back(std::move(effect));
  didChange();
}

void EffectList::remove(std::size_t index) {
  if (index >= all_.size()) return;
  all_.erase(all_.begin() + static_cast<std::ptrdiff_t>(index));
  didChange();
}

void EffectList::move(std::size_t from, std::size_t to) {
  if (from >= all_.size() || to >= all_.size() || from == to) return;
  const auto first = all_.begin();
  const auto f = static_cast<std::ptrdiff_t>(from);
  const auto t = static_cast<std::ptrdiff_t>(to);
  if (from < to) {
    std::rotate(first + f, first + f + 1, first + t + 1);
  } else {
    std::rotate(first + t, first + f, first + f + 1);
  }
  didChange();
}

void EffectList::setOn(std::size_t index, bool isOn) {
  if (all_.at(index)->isOn() == isOn) return;
  all_[index]->isOn_ = isOn;
  didChange();
}

void EffectList::setFrameSize(Size size) {
  if (size == frameSize_) return;
  for (const auto& effect : all_) {
    if (const auto* place = effect->place()) effect->setPlace(rescaled(*place, frameSize_, size));
  }
  frameSize_ = size;
}

nlohmann::json EffectList::json() const {
  auto list = nlohmann::json::array();
  for (const auto& effect : all_) {
    nlohmann::json entry = {{"kind", effect->kind()}, {"on", effect->isOn()}};
    if (!effect->file().empty()) entry["file"] = effect->file().string();
    for (const auto& level : effect->levels()) entry["levels"].push_back(level.value);
    if (const auto* place = effect->place()) entry["place"] = placeJSON(*place);
    list.push_back(std::move(entry));
  }
  return {{"frame", {frameSize_.width, frameSize_.height}}, {"list", std::move(list)}};
}

void EffectList::restore(const nlohmann::json& json, const std::function<void(const std::string&)>& fault) {
  try {
    const Size writtenFor = {json.at("frame").at(0), json.at("frame").at(1)};
    for (const auto& entry : json.at("list")) {
      auto effect = opened(entry);
      if (!effect) {
        fault(fmt::format("An effect of last time is left out: {}.", effect.error().description));
        continue;
      }
      const auto levels = entry.value("levels", std::vector<double>());
      for (std::size_t i = 0; i < std::min(levels.size(), (*effect)->levels().size()); ++i) {
        (*effect)->setLevel(i, levels[i]);
      }
      (*effect)->isOn_ = entry.value("on", true);
      if ((*effect)->place()) (*effect)->setPlace(rescaled(placeOf(entry.at("place")), writtenFor, frameSize_));
      all_.push_back(std::move(*effect));
    }
  } catch (const nlohmann::json::exception&) {
    fault("The list of effects of last time is damaged: it is left out.");
  }
  didChange();
}

}  // namespace tavrel::studio
