// A logical request that is under way when its environment goes down leaves its helper behind:
// nobody owns that while the request runs. Nothing else may leak.
#ifdef __SANITIZE_ADDRESS__
extern "C" const char* __lsan_default_suppressions() {
  return "leak:zo_tarvel::HttpAgent::MakeUnownedHelper\n";
}
#endif
