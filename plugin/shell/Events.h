// Scene events: what the plug-in does when the host starts a new scene or opens one.
#pragma once

namespace ZUK {

// Evaluates every retargeted model of the active scene once (those carrying the adjustment
// property), so that their live operators rebuild what they cache after a scene load.
void GooseAnyRetargetedModels();

}  // namespace ZUK
