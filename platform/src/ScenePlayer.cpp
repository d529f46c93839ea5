#include "ScenePlayer.h"

ScenePlayer::ScenePlayer() = default;
// Deletes nothing: the registry's teardown ends the objects it points at.
ScenePlayer::~ScenePlayer() = default;
