-- Copies a large file.
if file_copy("big.bin", "copied.bin") ~= 0 then error("not copied") end
