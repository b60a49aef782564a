// Marks what a stand-in exports; all else is hidden.
#pragma once

#define STANDIN_EXPORT __attribute__((visibility("default")))
