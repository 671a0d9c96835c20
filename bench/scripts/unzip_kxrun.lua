-- Unpacks an archive of the bundle into the save area.
if zip_unzip("files.zip", "unpacked") ~= 2000 then error("not unpacked", 0) end
