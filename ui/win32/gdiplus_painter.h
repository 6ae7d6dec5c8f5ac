#pragma once

namespace calder {

// Makes the custom controls paint with GDI+ (and GDI for the circle's text).
void InstallGdiPlusPainter();

}  // namespace calder
