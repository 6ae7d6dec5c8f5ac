// Keeps planted.dll in the dependent stand-in's import table.
extern "C" __declspec(dllimport) int planted_marker();
extern "C" __declspec(dllexport) int calder_needs_planted() { return planted_marker(); }
