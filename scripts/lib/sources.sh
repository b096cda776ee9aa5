# Shell functions that name our own C and C++ files. Source it; it needs $root, the top of the checkout.

# sources FOLDER...: every C and C++ source and header below these folders, one a line.
sources() {
    (cd "$root" && find "$@" -type f \( -name '*.cpp' -o -name '*.hpp' -o -name '*.c' -o -name '*.h' \) | LC_ALL=C sort)
}

format_folders=(src include tools sdk examples tests bench)
