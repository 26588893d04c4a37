# The fuzz targets, one line each: fuzz/<name>/ holds <name>.cpp (LLVMFuzzerTestOneInput),
# <name>.dict and corpus/; SOURCES are the files of src/ it links, besides the seam (none for
# ALONE, the crypto targets, whose code uses nothing). Included by
# fuzz/CMakeLists.txt, which builds them, and by tests/CMakeLists.txt, which runs each as a test.
vey_fuzz_target(json SOURCES json/value.cpp json/parser.cpp json/writer.cpp)
vey_fuzz_target(url SOURCES http/url.cpp)
vey_fuzz_target(response_head SOURCES http/response_head.cpp)
vey_fuzz_target(peer_answer SOURCES discovery/datagrams.cpp)
vey_fuzz_target(sha1 ALONE SOURCES crypto/sha1.cpp crypto/sha1_x86.cpp)
vey_fuzz_target(release_terms SOURCES release/release_terms.cpp)
vey_fuzz_target(peer_query SOURCES discovery/datagrams.cpp)
vey_fuzz_target(request_head SOURCES http_server/request_head.cpp http_server/target.cpp runtime/safe_name.cpp)
vey_fuzz_target(signature SOURCES release/signature.cpp)
vey_fuzz_target(ed25519 ALONE SOURCES crypto/ed25519.cpp crypto/field25519.cpp crypto/sha512.cpp crypto/sha256.cpp
    crypto/sha256_x86.cpp crypto/sha1_x86.cpp)
vey_fuzz_target(argument SOURCES json/value.cpp json/parser.cpp json/writer.cpp app/pipe_name.cpp)
vey_fuzz_target(item_objects SOURCES release/item_objects.cpp json/value.cpp json/parser.cpp json/writer.cpp)
vey_fuzz_target(zstd_diff ALONE LIBS zstd SOURCES zstd/block.cpp zstd/decoder.cpp zstd/errors.cpp zstd/fse.cpp
    zstd/huffman.cpp zstd/sequences.cpp zstd/window.cpp zstd/xxhash64.cpp)
vey_fuzz_target(zstd_made ALONE LIBS zstd SOURCES zstd/block.cpp zstd/decoder.cpp zstd/errors.cpp zstd/fse.cpp
    zstd/huffman.cpp zstd/sequences.cpp zstd/window.cpp zstd/xxhash64.cpp)
