#pragma once

// The skin framework's portable part in one include.
#include "ui/skin/builder.h"
#include "ui/skin/canvas.h"
#include "ui/skin/control.h"
#include "ui/skin/control_factory.h"
#include "ui/skin/dpi.h"
#include "ui/skin/label.h"
#include "ui/skin/layout.h"
#include "ui/skin/paint_manager.h"
#include "ui/skin/paint_window.h"
#include "ui/skin/progress.h"
#include "ui/skin/text.h"
#include "ui/skin/ui_events.h"
#include "ui/skin/ui_types.h"
#include "ui/skin/zip_reader.h"
