// A request that runs when its environment exits leaves its helper behind: nobody owns the helper
// while the request runs. Nothing else may leak.
#ifdef __SANITIZE_ADDRESS__
extern "C" const char* __lsan_default_suppressions() {
  return "leak:zo_tarvel::HttpAgent::MakeUnownedHelper\n";
}
#endif
