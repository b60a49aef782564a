// Marks what a stand-in exports. All else is hidden, so that no name of one library is bound to another.
#pragma once

#define STANDIN_EXPORT __attribute__((visibility("default")))
