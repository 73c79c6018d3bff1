-- A picture, as /holdings/picture?id=1&Stream=image/png: its bytes alone, as that type and no other. Browsers may
-- keep it.
SELECT http_provenance('Manifest');

SELECT image FROM pictures WHERE id = @id AND @Stream = 'image/png';
