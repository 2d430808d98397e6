// One of two definitions of a type.
namespace tarvu {
struct TwiceDefined {
  int low;
  int high;
};
TwiceDefined first(TwiceDefined a) { return {a.high, a.low}; }
TwiceDefined second(TwiceDefined a);
TwiceDefined both(TwiceDefined a) { return second(first(a)); }
}  // namespace tarvu
