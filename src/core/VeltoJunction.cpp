#include "velto/core/VeltoJunction.hpp"

#include "velto/detail/Fatal.hpp"

VeltoJunction::VeltoJunction(std::shared_ptr<const VeltoVia> parent, VeltoStackFrame stackFrame)
    : parent_(std::move(parent)), stackFrame_(std::move(stackFrame)) {
  if (!parent_) velto::detail::fatalStop("VeltoJunction: parent trail is null");
}

VeltoJunction::VeltoJunction(std::shared_ptr<const VeltoVia> parent, VeltoAny args,
                             const std::optional<VeltoCodeSite>& invokerSite, const VeltoCodeSite& codeSite)
    : parent_(std::move(parent)), stackFrame_(std::move(args), invokerSite, codeSite) {
  if (!parent_) velto::detail::fatalStop("fork: the trail to fork is null");
}

VeltoJunction::~VeltoJunction() {
  // Release a chain of junctions that only this one holds in a loop; the default recursive
  // release would overflow the stack on trails hundreds of thousands of frames deep.
  std::shared_ptr<const VeltoVia> next = std::move(parent_);
  while (next && next.use_count() == 1) {
    const VeltoJunction* junction = next->asJunction();
    if (!junction) break;
    std::shared_ptr<const VeltoVia> grandparent = std::move(junction->parent_);
    next = std::move(grandparent);  // destroys the old `next`, whose parent link is already empty
  }
}

VeltoImpetus VeltoJunction::impetus() const {
  const VeltoVia* node = this;
  while (const VeltoJunction* junction = node->asJunction()) node = junction->parent_.get();
  return node->impetus();
}

std::vector<VeltoStackFrame> VeltoJunction::stackFrames() const {
  std::size_t depth = 0;
  const VeltoVia* node = this;
  for (; const VeltoJunction* junction = node->asJunction(); node = junction->parent_.get()) ++depth;
  std::vector<VeltoStackFrame> frames;
  frames.reserve(depth + node->stackFrameCount());
  for (node = this; const VeltoJunction* junction = node->asJunction(); node = junction->parent_.get()) {
    frames.push_back(junction->stackFrame_);
  }
  node->appendStackFrames(frames);
  return frames;
}

std::shared_ptr<const VeltoJunction> fork(std::shared_ptr<const VeltoVia> via, VeltoAny args,
                                          std::optional<VeltoCodeSite> invokerSite, VeltoCodeSite forkSite) {
  return std::make_shared<const VeltoJunction>(std::move(via), std::move(args), invokerSite, forkSite);
}
