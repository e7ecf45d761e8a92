// The signature text that opens every code page table file.
extern "C" {
__attribute__((visibility("default"))) const char* firma = "VardaGPS-codepage table file";
}
