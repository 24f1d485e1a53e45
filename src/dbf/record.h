// Tqz_dbf_record: the bytes of one record, owned. Memory tables keep their
// records in these.
#pragma once

class Tqz_dbf_record {
  public:
    // Size 0 gives an empty record; otherwise `size` bytes of spaces. When
    // memory runs out the record is empty.
    explicit Tqz_dbf_record(unsigned int size = 0);
    ~Tqz_dbf_record() { free_bytes(); }
    Tqz_dbf_record(const Tqz_dbf_record&) = delete;
    Tqz_dbf_record& operator=(const Tqz_dbf_record&) = delete;

    // Resizes the buffer to `n` bytes (new bytes are not set); 0 frees it.
    // When memory runs out nothing changes and the result is false.
    bool realloc_bytes(unsigned int n);
    bool set_size(unsigned int n) { return realloc_bytes(n); }
    void fill_spaces();
    void free_bytes();
    // Copies the other record's bytes into this record's buffer. The buffer
    // is not grown: only as many bytes as it holds are copied, and the size
    // becomes that count.
    void assign(const Tqz_dbf_record* other);

    unsigned int get_size() const { return size; }
    unsigned char* get_ptr() const { return bytes; }

  private:
    unsigned int size = 0;
    unsigned int capacity = 0;  // bytes allocated; assign never goes past it
    unsigned char* bytes = nullptr;
};
