int wmain(int, wchar_t**) { return 0; }
