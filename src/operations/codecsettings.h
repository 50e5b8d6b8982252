#pragma once
// The one mapping between the creation combo boxes and the values the writer takes.

// comboBox_zlibComp: index i gives level (i + 1) mod 10; level 0 shows as index 9.
inline int zlibLevelFromIndex(int index)
{
    return index == 9 ? 0 : index + 1;
}
inline int zlibIndexFromLevel(int level)
{
    return level == 0 ? 9 : level - 1;
}
// comboBox_LZ4Comp: index i gives mode (i + 1) mod 3; mode 0 shows as index 2.
inline int lz4ModeFromIndex(int index)
{
    return index == 2 ? 0 : index + 1;
}
inline int lz4IndexFromMode(int mode)
{
    return mode == 0 ? 2 : mode - 1;
}
// comboBox_Ver: index i gives version i + 1, except the BSA item (index 3) which gives 0.
inline int versionFromIndex(int index)
{
    return index == 3 ? 0 : index + 1;
}
inline int versionIndex(int version)
{
    return version - 1;
}

enum Lz4Mode { Lz4Store = 0, Lz4Default = 1, Lz4LargeTable = 2 };
