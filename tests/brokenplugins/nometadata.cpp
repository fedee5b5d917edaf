// A shared library that is not a Qt plug-in.
extern "C" int notAPlugin()
{
    return 42;
}
