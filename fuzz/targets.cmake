# The fuzz targets, one line each: fuzz/<name>/ holds <name>.cpp (LLVMFuzzerTestOneInput),
# <name>.dict and corpus/; SOURCES are the files of src/ it links, besides the seam. Included by
# fuzz/CMakeLists.txt, which builds them, and by tests/CMakeLists.txt, which runs each as a test.
vey_fuzz_target(json SOURCES json/value.cpp json/parser.cpp json/writer.cpp)
vey_fuzz_target(url SOURCES http/url.cpp)
vey_fuzz_target(response_head SOURCES http/parse_head.cpp)
vey_fuzz_target(peer_answer SOURCES share/peer_datagrams.cpp)
vey_fuzz_target(sha1 SOURCES share/sha1.cpp share/sha1_x86.cpp)
vey_fuzz_target(release_terms SOURCES share/release_terms.cpp)
vey_fuzz_target(peer_query SOURCES share/peer_query.cpp share/peer_datagrams.cpp)
vey_fuzz_target(request_head SOURCES http/request_head.cpp share/target_name.cpp share/safe_name.cpp)
vey_fuzz_target(signature SOURCES share/signature.cpp)
vey_fuzz_target(ed25519 SOURCES share/ed25519.cpp share/field25519.cpp share/sha512.cpp share/sha256.cpp share/sha256_x86.cpp share/sha1_x86.cpp)
vey_fuzz_target(item_objects SOURCES share/item_objects.cpp json/value.cpp json/parser.cpp json/writer.cpp)
