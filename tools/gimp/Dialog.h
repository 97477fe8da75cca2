// The plug-in's dialog: every setting with the panel's captions and ranges, the three points, the guide,
// the presets, and a preview of the whole layer with the lines over it.
#pragma once

#include <libgimp/gimp.h>

#include "tools/gimp/GimpLayers.h"
#include "tools/gimp/PluginValues.h"

namespace brivane::gimp {

// Shows the dialog for the layer; true with `values` as set when the artist presses OK.
bool RunDialog(gint32 image, gint32 drawable, InkLayer& ink, PluginValues& values);

// The panel caption of a resource id, from the plug-in's own caption file.
const char* Caption(int id);

}  // namespace brivane::gimp
