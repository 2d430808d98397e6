// The other of two definitions of a type.
namespace tarvu {
struct TwiceDefined {
  double all;
};
TwiceDefined second(TwiceDefined a) { return {-a.all}; }
}  // namespace tarvu
