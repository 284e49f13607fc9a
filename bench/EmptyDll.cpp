int emptyDllBody = 0; // a DLL needs something in it; what loading costs is the loader
