#include "GPUImage/Private/Rehearsal.h"

#include <utility>

namespace tavrel {
namespace {

thread_local constinit Rehearsal* currentRehearsal = nullptr;

}  // namespace

Rehearsal::Rehearsal(Step step) : step_(step) { currentRehearsal = this; }
Rehearsal::~Rehearsal() { currentRehearsal = nullptr; }

Rehearsal* Rehearsal::current() { return currentRehearsal; }

void Rehearsal::meet(PendingDrawing drawing) {
  if (step_ == Step::making) return drawings_.push_back(std::move(drawing));
  for (PrecompiledProgram& program : drawing.unknownPrograms()) note(std::move(program));
}

}  // namespace tavrel
