from nubex._results import Box, Face, TextLine, read_document

DOCUMENT = ('{"scan_result":[{"Face":93.7161},{"Text":-1}],'
            '"text_details":["10,60,80,60,80,90,10,90,hello world","5,1,9,1,9,4,5,4,"],'
            '"face_details":[{"score":93.7161,"location":{"vertices":[{"y":57,"x":161},{"y":57,"x":289},'
            '{"y":185,"x":161},{"y":185,"x":289}]}}],'
            '"img_width":512,"img_height":384,"error_code":"","result":"True"}')


def test_a_full_document():
    result = read_document(DOCUMENT, {"Face": 8337, "Text": 9112})
    assert result.scores == {"Face": 93.7161, "Text": -1.0}
    assert result.scores_by_id == {8337: 93.7161, 9112: -1.0}
    assert list(result.scores) == ["Face", "Text"]  # the engine's order
    assert result.faces == (Face(93.7161, Box(left=161, top=57, right=289, bottom=185)),)
    assert result.faces[0].box.width == 128
    assert result.text_lines[0] == TextLine(("hello", "world"), ((10, 60), (80, 60), (80, 90), (10, 90)))
    assert result.text_lines[0].text == "hello world"
    assert result.text_lines[1].words == ()
    assert (result.width, result.height, result.ok, result.error) == (512, 384, True, "")
    assert result.document == DOCUMENT


def test_a_failed_scan():
    result = read_document('{"img_width":0,"img_height":0,"error_code":"Invalid image data.","result":"False"}', {})
    assert not result.ok
    assert result.error == "Invalid image data."
    assert result.scores == {} and result.faces == () and result.text_lines == ()


def test_names_the_listing_lacks_have_no_identifier():
    result = read_document('{"scan_result":[{"Other":1.5}],"result":"True"}', {"Face": 8337})
    assert result.scores == {"Other": 1.5}
    assert result.scores_by_id == {}
