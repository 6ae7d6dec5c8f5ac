#pragma once

// GDI+ needs COM's property types, which WIN32_LEAN_AND_MEAN leaves out.
#include <windows.h>
#include <objidl.h>
#include <gdiplus.h>
