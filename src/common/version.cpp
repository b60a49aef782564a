// The version as text in each library, for whoever has a file alone: strings FILE | grep '^zelreshdl '.

namespace {

// Nothing reads it, so compiler and linker are told to keep it. It is no symbol that other files see.
[[gnu::used, gnu::retain]] constexpr char kVersion[] = "zelreshdl " ZEL_VERSION;

}  // namespace
