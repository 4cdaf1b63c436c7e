// Placeholder translation unit until the subsystem has code of its own.
namespace vh {}
