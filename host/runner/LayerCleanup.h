// What a host does about render objects before it ends: the module never
// destroys them by itself (only delRenderer, delLayerAllRenderer and
// delCustomRenderer do), so the runner removes them at shutdown.
//
// Threading: GUI thread.
#pragma once

/// delLayerAllRenderer for every live layer made by a creatnewlayer step
/// (render objects on screens that were closed meanwhile included).
void removeRenderObjectsOfLiveLayers();

/// After every player is gone: render objects still hosted by an open
/// screen belong to layers the show deleted without removing them; they are
/// taken off their screen and destroyed. Returns how many.
int deleteRenderObjectsLeftOnScreens();
