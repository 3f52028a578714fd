/* What needs the vendor's library, as the product's library does. */
int enyx_hw_read(void);

int subject(void);
__attribute__((visibility("default"))) int subject(void) {
    return enyx_hw_read();
}
